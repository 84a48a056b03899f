// Whether a web server would take a certificate, and what a certificate says of itself.
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

/// Why a server would not take the text of a file with certificate, chain and key; empty when it would. It is read as
/// the servers read it: the first certificate, those that follow as its chain, the first key. The key has to be the
/// certificate's and without a passphrase; in a chain there has to be the one who issued it. When it ends is not looked
/// at.
std::string whyNoCertificate(std::string_view pem);

/// Why such a text is not what was asked for by these host names, separated by colons; empty when it is: the
/// certificate is for each of them, valid now, and signed by the first of the chain, as each of those is by the next.
std::string whyNotFor(std::string_view pem, std::string_view names);

/// When the first certificate of a text begins and ends, in seconds since the epoch.
struct Dates {
  long long from = 0;
  long long until = 0;
};
/// Reads that; no key is needed. What is wrong; empty when it was read.
std::string readDates(std::string_view pem, Dates& dates);

}  // namespace zvtaskq
