// Whether a web server would take a certificate. The one place that is linked with the TLS library.
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

/// Why a server would not take the text of a file with certificate, chain and key; empty when it would. It is read as
/// the servers read it: the first certificate, those that follow as its chain, the first key. The key has to be the
/// certificate's and without a passphrase; in a chain there has to be the one who issued it. When it ends is not looked
/// at.
std::string whyNoCertificate(std::string_view pem);

/// When the first certificate of a text begins and ends, in seconds since the epoch.
struct Dates {
  long long from = 0;
  long long until = 0;
};
/// Reads that; no key is needed. What is wrong; empty when it was read.
std::string readDates(std::string_view pem, Dates& dates);

}  // namespace zvtaskq
