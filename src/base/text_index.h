// Text that is searched again and again with one pattern and another name each time is read once
// into an index and looked up. The index of a text is built on first use and kept here.
#pragma once

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <utility>

#include "base/failure.h"

namespace tessel {

// Any thread may call any function. An index is built once, by the thread that asks first; others
// that ask for the same one wait for it.
class text_indexes {
 public:
  // The index of `text`, of type `Index`, which is built with `Index(std::string_view)`. Throws
  // what building threw, at every call: a text that cannot be read is read once. A shortage of
  // memory is not kept.
  template <class Index>
  std::shared_ptr<const Index> get(const std::shared_ptr<const std::string>& text) {
    const std::shared_ptr<entry> found = find({std::type_index(typeid(Index)), text.get()}, text);
    const std::lock_guard lock(found->mutex);
    if (found->failure) std::rethrow_exception(found->failure);
    if (!found->index) build<Index>(*found);
    return std::static_pointer_cast<const Index>(found->index);
  }

  // Forgets all of them; who holds one may go on using it.
  void clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
  }

 private:
  struct entry {
    std::shared_ptr<const std::string> text;  // constant; what the index's views point into
    std::mutex mutex;
    std::shared_ptr<const void> index;  // guarded by mutex
    std::exception_ptr failure;         // guarded by mutex; why there is no index
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
