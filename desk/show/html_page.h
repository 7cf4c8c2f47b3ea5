// What all pages share around their own parts.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

// Opens a page that refers to nothing outside; its policy lets a browser load nothing. The title is
// HTML. A failure to write is left to the stream's state, as in all of these. Any thread.
void open_page(const std::string& title, std::ostream& out);

// Says who wrote it and how far to trust it, adds the script, and ends the page and its <main>.
void close_page(std::ostream& out);

// One entry of a list of facts; nothing if the value, which is raw text, is empty.
void show_fact(std::string_view name, const std::string& value, std::ostream& out);

// The search, which shows only where its script runs. `example` is HTML.
void show_search(std::string_view example, std::ostream& out);

// Opens a table in a box that scrolls, up to its first row; the names are HTML.
void open_table(std::string_view name, const std::vector<std::string_view>& columns,
                std::ostream& out);

}  // namespace desk
