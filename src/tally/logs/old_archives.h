// Which archives have had their time, and their deletion.
#pragma once

namespace zvtaskq {

class Config;
class ListFile;
struct OpenedFolder;

/// Puts into `out` those of the names (files of the folder) that are not among the `keep` newest, the oldest first by
/// the time of their last change; of the same age, the one that is earlier in `names`. A link's own time counts. When
/// there are not more than `keep`, or one of them cannot be examined, nothing is put. `out` keeps its order only with
/// `keepOrder`. Works under the identity of the moment.
void get_logs_to_delete(const char* directory, const ListFile& names, ListFile& out, int keep);
void get_logs_to_delete(int directory, const ListFile& names, ListFile& out, int keep);

/// Deletes the oldest archives of months (tally/logs/month_archive.h) in a folder of `user`, as the user, so that
/// `logs_to_keep` remain, twice as many with `nginx_proxy`; other files stay. "Error while deleteing %s : %s" in the
/// error log for each that cannot be deleted. Leaves the process at nobody.
void deleteOldFilesFrom(const OpenedFolder& folder, const char* user, const Config* conf);

}  // namespace zvtaskq
