// The parts of the self-check. Each looks at one thing and adds what is wrong with it.
//
// All may be called under any identity, and give it back or leave nobody's. They change nothing.
#pragma once

namespace zvtaskq {

class Issues;

/// Services of "services.status" that do not run.
void checkServicesRun(Issues& issues);
/// Web servers whose limit of open files is below what their logs need.
void checkOpenFiles(Issues& issues);
/// Keys of the configuration file that nothing reads, with the nearest that is read.
void checkSettingNames(Issues& issues);
/// The panel's own files and folders: whether they are there, whose they are, who may write to them.
void checkPanelFiles(Issues& issues);
/// The templates that an installation brings.
void checkTemplates(Issues& issues);
/// All accounts in one pass, for two minutes at most: system account, home, folder, records.
void checkAccounts(Issues& issues);
/// Certificates of domains and of the server that end within two weeks, have ended, or cannot be read.
void checkCertificateEnds(Issues& issues);
/// What a run that was killed has left, and nothing has finished for an hour.
void checkLeftovers(Issues& issues);
/// Whether the clock can be right, and whether something keeps it so.
void checkClock(Issues& issues);
/// The file systems that the panel writes to: space and files.
void checkSpace(Issues& issues);

}  // namespace zvtaskq
