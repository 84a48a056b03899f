// How often administrators are told of services that are down.
#pragma once

namespace zvtaskq {

/// Seconds between two service notices, whatever the service.
inline constexpr int kServiceNoticeInterval = 3600;

/// Whether a service notice may go out now, by "admin.conf" in `admindir`; if so, that is noted there. 0 when
/// `service_email_active` is not "yes", when there is no `service_email_last_sent`, when the last one is less than an
/// hour ago, and, with the documented error-log line, when the record cannot be read or written. A time that lies in
/// the future or is no number is told in the error log and holds nothing back. The record is nobody's: may be called
/// under any identity, leaves nobody.
int mayNotifyOfService();

}  // namespace zvtaskq
