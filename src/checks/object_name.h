// The name of an object under comparison. Nearly every object agrees, and then nobody reads its
// name, so it is put together only for a message.
//
//   const auto named = [&] { return fmt::format("{}({})", bundle, plain(ifh)); };
//   check_lagid(lagid, element, object_name(named), "DPA");
//   check_lagid(lagid, element, "BE12(0x3000120)", "DPA");
#pragma once

#include <fmt/format.h>

#include <concepts>
#include <string>
#include <string_view>

namespace tessel {

// Only refers to the text or the function, which must outlive it: for parameters and local names.
class object_name {
 public:
  template <class Text>
  requires std::convertible_to<const Text&, std::string_view> object_name(const Text& text)
      : text_(text) {}
  // `form` gives the text. It may be called on any thread that has the name, any number of times.
  template <std::invocable Form>
  explicit object_name(const Form& form)
      : form_(&form), call_([](const void* made_by) {
          return std::string((*static_cast<const Form*>(made_by))());
        }) {}

  std::string text() const { return call_ == nullptr ? std::string(text_) : call_(form_); }

 private:
  std::string_view text_;
  const void* form_ = nullptr;
  std::string (*call_)(const void*) = nullptr;
};

}  // namespace tessel

template <>
struct fmt::formatter<tessel::object_name> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const tessel::object_name& name, Context& context) const {
    return fmt::formatter<std::string_view>::format(name.text(), context);
  }
};
