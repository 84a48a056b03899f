// A month's traffic of an account by kind and day, from its tally file.
#pragma once

namespace zvtaskq {

class ConfigFile;

/// Fills `breakdown`, emptied first, from a tally file. 0 with an error-log line when the file is there and cannot be
/// read to its end; what could be read is in it. A missing file gives a month without traffic. Reads as root, and
/// leaves the process at nobody.
///
/// The pairs:
/// - a pair a day with traffic, named "<year> <month> <day>" ("2026 11 05"): a URL-encoded record with the bytes of the
///   day by kind, their sum `total`, and its deliveries;
/// - `total`: the same of the whole month;
/// - `simpletotal`: the bytes of the month alone;
/// - `email_count`, `email_count_incoming`, `email_count_outgoing`: the deliveries of the month.
///
/// The kinds are `http`, `http_ul` (uploads), `http_homedir`, `ftp`, `imap`, `email` and `other`. A tally's own line
/// ("tally") has its four parts in it; the rest goes by `type`. The day is that of the record's `time`; a line without
/// one, or with one that has not come yet, belongs to the day of the line before. E-mails are one delivery each,
/// incoming or outgoing by the record's `method`; one whose `id` has occurred adds nothing. When that is known of a
/// million ids they are forgotten, and the counting begins anew, so that no file fills the memory.
///
/// A line of a later month starts the breakdown anew, and so does the month of now. The change is told in the error log
/// when it shows in a lower day.
int get_bandwidth_breakdown(const char* path, ConfigFile& breakdown);

}  // namespace zvtaskq
