// Numbers as the platform prints them.
//
//   convert_hex_to_int("0x10")   // "16"     decimal text
//   convert_to_hex("16")         // "0x10"   lower-case hexadecimal text
//   convert_hex_to_int("Not set")// "Not set"
//
// "Automatic base" is: white space around and one sign allowed, "0x" in front means hexadecimal, a
// bare leading zero octal, anything else decimal; nothing may stand behind. Numbers of any length
// are converted; only where an `int64_t` is asked for must they fit one.
//
// All functions may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/here.h"
#include "base/value.h"

namespace tessel {

// A text read with automatic base, as decimal text; any other value, and a text that is no number,
// unchanged.
value convert_hex_to_int(const value& val);

// A text or an integer as lower-case hexadecimal text with "0x" in front: read with automatic base
// and, should that fail ("08"), as plain decimal. Throws `failure` if it is no number either way.
std::string convert_to_hex(const value& val, here where = here::current());

// A map of maps with its outer keys (automatic base) and inner values (integers) as hexadecimal
// text; inner keys stay. Throws `failure` for anything that is no number. No parser needs it today;
// it is kept as the form of `convert_to_hex` for a whole table.
value convert_object_to_hex(const value& val);

// A text read with automatic base; as plain decimal; as hexadecimal with or without "0x". Each
// throws `failure` naming the text if it is no number or does not fit 64 bits. `to_decimal` takes
// an integer as it is.
std::int64_t to_integer(const value& text, here where = here::current());
std::int64_t to_decimal(const value& text, here where = here::current());
std::int64_t to_hexadecimal(std::string_view text, here where = here::current());

}  // namespace tessel
