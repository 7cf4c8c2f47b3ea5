// The single fields of one forwarding object's block. Each function here finds what the pattern
// beside it defines; a block is short, and there are so many that a search with the pattern costs
// more than the reading itself.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel {

// The lines "NAME => VALUE" of a block.
class field_lines {
 public:
  enum class values { words, words_and_colons };
  static constexpr std::string_view words_definition = R"((?<!\w)(\w++)\s=>\s(\w+))";
  static constexpr std::string_view words_and_colons_definition = R"((?<!\w)(\w++)\s=>\s([\w:]*))";

  // `block` must outlive this object.
  field_lines(values kind, std::string_view block);

  // The value of the last line with this name; nothing if there is none.
  std::optional<std::string_view> last_of(std::string_view name) const;
  // Name and value of each line, in order.
  const std::vector<std::pair<std::string_view, std::string_view>>& lines() const { return lines_; }

 private:
  std::vector<std::pair<std::string_view, std::string_view>> lines_;
};

// The values of some of these lines, of one block after the other, without memory for the others.
// For one thread.
class last_values {
 public:
  explicit last_values(field_lines::values kind) : kind_(kind) {}

  // Adds a field to those wanted. `name` must outlive this object.
  void want(std::string_view name) { wanted_.push_back({name, std::nullopt}); }
  // Forgets the last block. `block` must stay as long as a value is used.
  void read(std::string_view block);
  // What `last_of` gives for the field that was wanted at this position.
  const std::optional<std::string_view>& of(std::size_t position) const {
    return wanted_[position].last;
  }

 private:
  struct wanted {
    std::string_view name;
    std::optional<std::string_view> last;
  };
  field_lines::values kind_;
  std::vector<wanted> wanted_;
};

// The handle and the LAG id of a lagport block, as printed; nothing if the block has none.
struct lagport_head {
  std::string_view ifh;
  std::string_view lagid;
};
inline constexpr std::string_view lagport_head_definition =
    "dpa_intf_t\\sintf\\s=>\\s(\\w+)\n\\s+\\w+ lag_id\\s=.\\s(\\w+)";
std::optional<lagport_head> lagport_head_of(std::string_view block);

// The limit of a lagport block's members; empty if the block has none.
inline constexpr std::string_view member_limit_definition =
    R"(uint32_t max_member_count\s+=>\s+(\d+))";
std::string_view member_limit_of(std::string_view block);

// The handle of any other block; empty if the block has none.
inline constexpr std::string_view interface_handle_definition =
    R"(@dpa_intf_t\s+intf\s+=>\s+(\w+))";
std::string_view interface_handle_of(std::string_view block);

}  // namespace tessel
