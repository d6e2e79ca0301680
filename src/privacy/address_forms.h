// The written forms of network addresses: exact parsers over one token and canonical printers,
// so that every spelling of one address is recognised as the same value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace privacy {

/// Whether text[0, size) is exactly four dotted decimal numbers of 0..255 (at most three
/// digits each); the address is stored in bytes.
bool parseIPv4(const char* text, size_t size, uint8_t bytes[4]);
/// "a.b.c.d".
std::string formatIPv4(const uint8_t bytes[4]);

/// Whether text[0, size) is exactly one IPv6 address in any written form (full, compressed,
/// upper or lower case, with an IPv4 tail), with no zone and no prefix length.
bool parseIPv6(const char* text, size_t size, uint8_t bytes[16]);
/// The compressed lower-case form (the longest run of two or more zero groups as "::").
std::string formatIPv6(const uint8_t bytes[16]);

/// How a MAC address was written, so that its replacement is written alike.
enum MacForm : int { MAC_COLON, MAC_HYPHEN, MAC_DOTTED };
/// Whether text[0, size) is exactly a MAC address: "52:54:00:ab:cd:ef", "52-54-00-AB-CD-EF" or
/// "5254.00ab.cdef"; sets the form and whether its letters were upper case.
bool parseMac(const char* text, size_t size, uint8_t bytes[6], MacForm& form, bool& upper);
/// The address in the given form and case.
std::string formatMac(const uint8_t bytes[6], MacForm form, bool upper);

}  // namespace privacy
