// Numbers as the platform prints them.
//
//   convert_hex_to_int("0x10")   // "16"     decimal text
//   convert_to_hex("16")         // "0x10"   lower-case hexadecimal text
//   convert_hex_to_int("Not set")// "Not set"
//
// "Automatic base": "0x" in front means hexadecimal, a bare leading zero octal, anything else
// decimal. White space around the number and one sign are allowed; any other character after the
// number is an error. Numbers of up to 4096 digits are converted; a longer text does not count as a
// number. Only functions that return an `int64_t` require the number to fit one.
//
// All functions may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/here.h"
#include "base/value.h"

namespace tessel {

// Decimal text of a text that is a number in automatic base. Any other text or value is returned
// unchanged.
value convert_hex_to_int(const value& val);

// Lower-case hexadecimal text, with "0x" in front, of a text or an integer. The text is read with
// automatic base and, if that fails ("08"), as plain decimal. Throws `failure` if both fail.
std::string convert_to_hex(const value& val, here where = here::current());
// The same of a text.
std::string hex_of(std::string_view printed, here where = here::current());

// Converts the outer keys (automatic base) and the inner values (integers) of a map of maps to
// hexadecimal text; the inner keys stay. Throws `failure` if one of them is not a number. No parser
// needs it today; it is kept as the counterpart of `convert_to_hex` for a whole table.
value convert_object_to_hex(const value& val);

// Wide enough for any calculation with the platform's 64-bit numbers, signed or unsigned.
__extension__ using wide_int = __int128;

// `to_wide` reads a text with automatic base, `to_wide_decimal` reads plain decimal and also takes
// an integer. Each throws `failure` with the text if it is not a number or does not fit 96 bits.
wide_int to_wide(const value& text, here where = here::current());
wide_int to_wide_decimal(const value& text, here where = here::current());

// `number` as an integer, or as decimal text if it does not fit 64 bits.
value number_value(wide_int number);

// The low 64 bits, as two's complement, of a text read with automatic base. Throws `failure` with
// the text if it is not a number.
std::uint64_t to_low_bits(const value& text, here where = here::current());

// `to_integer` reads a text with automatic base, `to_decimal` reads plain decimal and also takes an
// integer, `to_hexadecimal` reads hexadecimal with or without "0x". Each throws `failure` with the
// text if it is not a number or does not fit 64 bits.
std::int64_t to_integer(const value& text, here where = here::current());
std::int64_t to_decimal(const value& text, here where = here::current());
std::int64_t to_hexadecimal(std::string_view text, here where = here::current());

}  // namespace tessel
