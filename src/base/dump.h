// Readable forms of values and stores.
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

// A record's fields as a map, the form in which a record is serialised.
value dumper(const value& obj);

// Writes `obj` as JSON with sorted keys to `outfile`, between the lines 'Start of LAYER entries...'
// and 'End of LAYER entries...' (quotes included). If serialising fails, the failure is logged on
// the channel "exception", but not counted, and the printed form is written instead. Throws
// `failure` if a marker line cannot be written.
void print_object(const value& obj, log_file& outfile, std::string_view layer);

// Writes the quoted form of `text` as one line of `outfile`.
void pprint(std::string_view text, log_file& outfile);

// A text unchanged, an integer in decimal, anything else in its printed form.
std::string plain(const value& obj);

// The printed form of a value: {'key': 'text', 'other': 1, 'list': ['a', 'b']}.
std::string printed(const value& obj);

}  // namespace tessel
