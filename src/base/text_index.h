// Indexes for texts that are searched many times with one pattern and a different name each time.
// The index of a text is built at the first look-up and kept here.
#pragma once

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <utility>

#include "base/failure.h"
#include "base/worker.h"

namespace tessel {

// Any thread may call any function. The first thread that asks for an index builds it; others that
// ask for the same index wait.
class text_indexes {
 public:
  // The index of `text`, built with `Index(std::string_view)`. If building threw a `failure`, every
  // call throws it again, so that an unreadable text is read only once. Other exceptions, such as a
  // shortage of memory, are not kept, and the next call builds again.
  template <class Index>
  std::shared_ptr<const Index> get(const std::shared_ptr<const std::string>& text) {
    const std::shared_ptr<entry> found = find({std::type_index(typeid(Index)), text.get()}, text);
    const patient_lock lock(found->mutex);
    if (found->failure) std::rethrow_exception(found->failure);
    if (!found->index) build<Index>(*found);
    return std::static_pointer_cast<const Index>(found->index);
  }

  // Forgets all indexes. Those already handed out stay valid.
  void clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
  }

 private:
  struct entry {
    std::shared_ptr<const std::string> text;  // constant; what the index's views point into
    std::mutex mutex;
    std::shared_ptr<const void> index;  // guarded by mutex
    std::exception_ptr failure;         // guarded by mutex; why building the index failed
  };
  using entry_key = std::pair<std::type_index, const std::string*>;

  template <class Index>
  static void build(entry& wanted) {
    try {
      wanted.index = std::make_shared<const Index>(*wanted.text);
    } catch (const tessel::failure&) {
      wanted.failure = std::current_exception();
      throw;
    }
  }

  std::shared_ptr<entry> find(const entry_key& key,
                              const std::shared_ptr<const std::string>& text) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<entry>& slot = entries_[key];
    if (!slot) {
      slot = std::make_shared<entry>();
      slot->text = text;
    }
    return slot;
  }

  std::mutex mutex_;
  std::map<entry_key, std::shared_ptr<entry>> entries_;  // guarded by mutex_
};

}  // namespace tessel
