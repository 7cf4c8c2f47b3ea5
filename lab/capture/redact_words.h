// The words of a free text that the audit's patterns read: it searches the whole configuration, and
// in a description it cannot know them from commands.
//
//     "to Oslo, encapsulation dot1q 7!"  ->  "text-1, encapsulation dot1q 7!"
//
// Kept are the marks at which it splits and quotes texts, and the words of interfaces, bundles and
// encapsulations with the numbers that belong to them. They name nothing that the rest of a
// redacted capture does not show.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace lab {

// How many bytes of the text from this place on the audit reads; 0 if it reads none there.
std::size_t read_by_audit(std::string_view text, std::size_t at);

// The text with everything else replaced: each piece between two words that stay, without the
// blanks around it, becomes what `replacement` gives for it.
std::string with_read_words(std::string_view text,
                            const std::function<std::string(std::string_view)>& replacement);

}  // namespace lab
