// The tokens of the zone template. What is known of them stands in this table alone; docs/templates.md is made from it.
#pragma once

namespace zvtaskq {

enum class ZoneToken { domain, serial, ns1, ns, nsHost, subdomain, ip, ipv6, spf, dkim };

struct ZoneTokenRow {
  ZoneToken token;
  const char* name;
  /// A line with it stands once for each of its values, and not at all when it has none.
  bool isList;
  const char* example;
  const char* meaning;
};

/// In the order of the enumeration.
inline constexpr ZoneTokenRow kZoneTokens[] = {
    {ZoneToken::domain, "DOMAIN", false, "bob.example", "The zone: a domain, or a pointer of one."},
    {ZoneToken::serial, "SERIAL", false, "2026112301",
     "The serial number. It is raised when anything else has changed."},
    {ZoneToken::ns1, "NS1", false, "ns1.host.example", "The first name server: what the SOA record names."},
    {ZoneToken::ns, "NS", true, "ns1.host.example",
     "The name servers: `ns1` and `ns2` of the account's record, else of its creator's, else of `zorvane.conf`, else "
     "`servername`."},
    {ZoneToken::nsHost, "NS_HOST", true, "ns1", "Those name servers that are in the zone itself, without the domain."},
    {ZoneToken::subdomain, "SUBDOMAIN", true, "shop", "The subdomains, without the domain."},
    {ZoneToken::ip, "IP", true, "192.0.2.20",
     "The IPv4 addresses: that of the domain's record, else of the account's, and those that are linked to it."},
    {ZoneToken::ipv6, "IPV6", true, "2001:db8::20", "The IPv6 addresses, in the same way."},
    {ZoneToken::spf, "SPF", false, "\"v=spf1 a mx ip4:192.0.2.10 ~all\"",
     "Who may send mail, quoted as a text record wants it; none unless `dns_spf` is on. `extra_spf_value` is in it."},
    {ZoneToken::dkim, "DKIM", true, "x._domainkey IN TXT \"v=DKIM1; ...\"",
     "Whole records with the keys that sign the domain's mail; none unless `dkim` is on."},
};

constexpr const ZoneTokenRow& rowOf(ZoneToken token) {
  return kZoneTokens[static_cast<int>(token)];
}

}  // namespace zvtaskq
