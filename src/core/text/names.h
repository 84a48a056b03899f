// Whether a text is the name or address that it is meant to be, before it becomes part of a path or a command.
#pragma once

namespace zvtaskq {

/// All answer 1 or 0, and 0 for null and empty.

/// "192.0.2.1": four decimal numbers, none with a leading zero.
int isValidIPv4(const char* text);
/// Any written form of an IPv6 address, without zone or brackets.
int isValidIPv6(const char* text);
int isValidIP(const char* text);

/// A user's name: a letter (or with `allowNumeric` a digit), then letters, digits, "-" and "_", at most `maxLength`
/// (0: 32) in all. Lower case only unless `allowUpperCase`. What the administrator allows for accounts is known to
/// account/model/account_name.h.
int isValidUsername(const char* name, int maxLength = 0, int allowUpperCase = 0, int allowNumeric = 0);

/// A domain or host name of at least two labels, each of 1 to 63 letters, digits and inner hyphens, 253 characters in
/// all, the last label not all digits. No dot at the end.
int isValidDomain(const char* name);

}  // namespace zvtaskq
