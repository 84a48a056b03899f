// Writing an e-mail: the text of a message of RFC 5322 with plain text in it, as `sendmail -t` takes it, its lines
// ended by line feeds. Nothing in a subject, a name or a body can become a header.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace zvtaskq {

struct MailText {
  /// Display name and address of the sender.
  std::string fromName;
  std::string from;
  /// The address that really sends, for a header "X-Zorvane-Sender"; empty for none.
  std::string sender;
  /// The address it goes to; both have to pass `isMailAddress`.
  std::string to;
  /// One line: line breaks and other control characters count as blanks.
  std::string subject;
  /// In UTF-8, or else taken for ISO 8859-1. Line breaks may be LF or CR LF.
  std::string body;
  /// The name of this server, a host name.
  std::string server;
  std::time_t date = 0;
};

/// Whether the text is an address as it may stand in a header and be handed to a mail server: LOCAL@DOMAIN, the local
/// part of letters, digits and the signs that need no quotes, the domain a host name, "localhost" included.
bool isMailAddress(std::string_view address);

/// The whole message. The Message-ID is new with every call.
std::string composeMail(const MailText& mail);

/// The text as one line: control characters, line breaks among them, become blanks, and those at its ends go.
std::string oneLine(std::string_view text);
/// A header's free text: as it is when it is short plain ASCII, else as encoded words (RFC 2047), folded.
std::string encodeHeader(std::string_view text);
/// The body in quoted-printable form, no line longer than 76 characters.
std::string encodeBody(std::string_view text);

}  // namespace zvtaskq
