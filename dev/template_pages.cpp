// Prints docs/templates.md: the tokens of the templates of services, from the tables that the program itself uses.
//
// The result is kept in docs/; the build target update_template_pages writes it anew.
#include <cstdio>

#include "services/dns/zone_tokens.h"

int main() {
  std::puts(
      "# Templates\n"
      "\n"
      "Made from the tables of the program (`cmake --build --preset dev --target update_template_pages`). Stock templates stand in\n"
      "`data/templates`; a file of the same name in the folder `custom` beside them wins. `|NAME|` stands for a token's value,\n"
      "`|?NAME=value|` sets one that has none, `|*if NAME|`, `|*else|` and `|*endif|` choose. A line with a token that is a list stands once\n"
      "for each of its values, and not at all when it has none. A token that there is not is an error, and nothing is written.\n"
      "\n"
      "## `dns_zone.txt`\n"
      "\n"
      "A zone: records as BIND reads them, and `$TTL`; `$INCLUDE` and `$GENERATE` are not taken. Times, `HOSTMASTER`, `DMARC` (a quoted\n"
      "text) and `CAA` (such as `0 issue \"letsencrypt.org\"`, none at first) are set in the template itself.\n"
      "\n"
      "| token | list | example | meaning |\n"
      "|---|---|---|---|");
  for (const zvtaskq::ZoneTokenRow& row : zvtaskq::kZoneTokens) {
    std::printf("| `%s` | %s | `%s` | %s |\n", row.name, row.isList ? "yes" : "", row.example, row.meaning);
  }
  return 0;
}
