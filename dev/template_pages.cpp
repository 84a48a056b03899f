// Prints docs/templates.md: the tokens of the templates of services, from the tables that the program itself uses.
//
// The result is kept in docs/; the build target update_template_pages writes it anew.
#include <cstdio>

#include "account/filters/filter_tokens.h"
#include "services/dns/zone_tokens.h"
#include "services/ftp/host_tokens.h"
#include "services/web/web_tokens.h"

namespace {

template <class Row>
void printRow(const Row& row) {
  std::printf("| `%s` | %s | `%s` | %s |\n", row.name, row.isList ? "yes" : "", row.example, row.meaning);
}

void printWeb() {
  std::puts(
      "\n"
      "## `nginx_site.txt`, `httpd_site.txt`, `nginx_ips.txt`, `httpd_ips.txt`, `php_pool.txt`\n"
      "\n"
      "A web site, once over http and, where there is a certificate, once over https; and what listens, in the same "
      "way, with the\n"
      "page for names that are no site's (`PAGE`); and the pool of an account's PHP. Conditions may ask for the flags "
      "below and for the tokens of "
      "`global_httpd_tokens`,\n"
      "not for the tokens of a site: those are put in when definitions, conditions and script blocks are settled, and "
      "are never\n"
      "read as a template. A line may have one list. The pages themselves are `web_suspended.html` and "
      "`web_default.html`.\n"
      "\n"
      "| token | list | example | meaning |\n"
      "|---|---|---|---|");
  for (const zvtaskq::WebTokenRow& row : zvtaskq::kWebTokens) printRow(row);
  std::puts("\n| flag | set when |\n|---|---|");
  for (const zvtaskq::WebFlagRow& row : zvtaskq::kWebFlags) std::printf("| `%s` | %s |\n", row.name, row.meaning);
}

void printFtp() {
  std::puts(
      "\n"
      "## `ftp_host.txt`\n"
      "\n"
      "A host of ProFTPD: one for each domain on an address that its account has for itself and that has a password "
      "file "
      "of its own,\n"
      "or one for the address. What its log is named and holds is how the tally bills it.\n"
      "\n"
      "| token | list | example | meaning |\n"
      "|---|---|---|---|");
  for (const zvtaskq::HostTokenRow& row : zvtaskq::kHostTokens) printRow(row);
}

void printFilters() {
  std::puts(
      "\n"
      "## `mail_filter.txt`\n"
      "\n"
      "The filter of the mailboxes of a domain, as Exim reads it. Exim judges it before any filter is written.\n"
      "\n"
      "| token | list | example | meaning |\n"
      "|---|---|---|---|");
  for (const zvtaskq::FilterTokenRow& row : zvtaskq::kFilterTokens) printRow(row);
}

}  // namespace

int main() {
  std::puts(
      "# Templates\n"
      "\n"
      "Made from the tables of the program (`cmake --build --preset dev --target update_template_pages`). Stock "
      "templates stand in\n"
      "`data/templates`; a file of the same name in the folder `custom` beside them wins. `|NAME|` stands for a "
      "token's value,\n"
      "`|?NAME=value|` sets one that has none, `|*if NAME|`, `|*else|` and `|*endif|` choose. A line with a token that "
      "is a list stands once\n"
      "for each of its values, and not at all when it has none. A token that there is not is an error, and nothing is "
      "written.\n"
      "\n"
      "## `dns_zone.txt`\n"
      "\n"
      "A zone: records as BIND reads them, and `$TTL`; `$INCLUDE` and `$GENERATE` are not taken. Times, `HOSTMASTER`, "
      "`DMARC` (a quoted\n"
      "text) and `CAA` (such as `0 issue \"letsencrypt.org\"`, none at first) are set in the template itself.\n"
      "\n"
      "| token | list | example | meaning |\n"
      "|---|---|---|---|");
  for (const zvtaskq::ZoneTokenRow& row : zvtaskq::kZoneTokens) printRow(row);
  printWeb();
  printFtp();
  printFilters();
  return 0;
}
