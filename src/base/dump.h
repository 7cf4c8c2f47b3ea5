// Values and stores as a person reads them.
//
//   plain("0x1")                       // 0x1
//   printed(list)                      // ['0x1', 2]
//   pprint("Started", file)            // 'Started'            one line of a file
//   print_object(store, file, "DPA")   // the store as JSON between two marker lines of a file
//
// All functions may be called from any thread.
#pragma once

#include <string>
#include <string_view>

#include "base/log_file.h"
#include "base/value.h"

namespace tessel {

// The map of a record's fields, the form in which it is serialised.
value dumper(const value& obj);

// Writes `obj` as JSON to `outfile`, keys sorted, between the lines 'Start of LAYER entries...'
// and 'End of LAYER entries...' (in quotes). What cannot be serialised is logged on the channel
// "exception" and printed plainly instead; nothing is counted. Throws `failure` if a marker line
// cannot be written.
void print_object(const value& obj, log_file& outfile, std::string_view layer);

// `text` in its quoted form as one line of `outfile`.
void pprint(std::string_view text, log_file& outfile);

// A text as it is, an integer in decimal, anything else in its printed form.
std::string plain(const value& obj);

// The printed form of a value: {'key': 'text', 'other': 1, 'list': ['a', 'b']}.
std::string printed(const value& obj);

}  // namespace tessel
