// The transfer logs of both FTP servers: what is taken of a line stands in it, and is whole.
#include "core/read/line_reader.h"
#include "support.h"
#include "tally/traffic/home_traffic.h"
#include "tally/traffic/transfer_line.h"

namespace {
bool stands(std::string_view part, std::string_view line) {
  return !part.empty() && part.data() >= line.data() && part.data() + part.size() <= line.data() + line.size();
}

void look(TransferReader read, std::string_view line) {
  Transfer transfer;
  if (!read(line, transfer)) return;
  require(stands(transfer.user, line) && stands(transfer.from, line), "user or address", line);
  require(stands(transfer.bytesText, line), "bytes", line);
  require(transfer.bytesText.find_first_not_of("0123456789") == std::string_view::npos, "a number", line);
  require(std::to_string(transfer.bytes).size() <= transfer.bytesText.size(), "the number", line);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string whole(reinterpret_cast<const char*>(data), size);
  std::string_view rest = whole, line;
  TransferReader pureftpd = nullptr;
  for (bool isFirst = true; nextLine(rest, line); isFirst = false) {
    if (isFirst) pureftpd = pureftpdReader(line);
    if (pureftpd != nullptr) look(pureftpd, line);
    look(readProftpdLine, line);
    HomeTraffic traffic;
    if (!readHomeTraffic(line, traffic)) continue;
    require(stands(traffic.account, line) && traffic.account.find_first_of("/.%") == std::string_view::npos, "account");
  }
  return 0;
}
