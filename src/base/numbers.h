// Numbers as the platform prints them.
//
//   convert_hex_to_int("0x10")   // "16"     decimal text
//   convert_to_hex("16")         // "0x10"   lower-case hexadecimal text
//   convert_hex_to_int("Not set")// "Not set"
//
// "Automatic base" is: white space around and one sign allowed, "0x" in front means hexadecimal, a
// bare leading zero octal, anything else decimal; nothing may stand behind. Numbers of up to
// 4096 digits are converted, a longer text is no number; only where an `int64_t` is asked for must
// they fit one.
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

// Room for what the platform's 64 bits, signed or not, are reckoned up to.
__extension__ using wide_int = __int128;

// A text read with automatic base; as plain decimal, which an integer is taken for too. Each throws
// `failure` naming the text if it is no number or does not fit 96 bits.
wide_int to_wide(const value& text, here where = here::current());
wide_int to_wide_decimal(const value& text, here where = here::current());

// `number` as an integer or, where 64 bits do not hold it, as decimal text.
value number_value(wide_int number);

// The low 64 bits, as two's complement, of a text read with automatic base. Throws
// `failure` naming the text if it is no number.
std::uint64_t to_low_bits(const value& text, here where = here::current());

// A text read with automatic base; as plain decimal; as hexadecimal with or without "0x". Each
// throws `failure` naming the text if it is no number or does not fit 64 bits. `to_decimal` takes
// an integer as it is.
std::int64_t to_integer(const value& text, here where = here::current());
std::int64_t to_decimal(const value& text, here where = here::current());
std::int64_t to_hexadecimal(std::string_view text, here where = here::current());

}  // namespace tessel
