// Puts the messages at the disposal of whoever asks for them through `notifyOperations`.
#pragma once

namespace zvtaskq {

/// Called once, before the first message.
void provideNotices();

}  // namespace zvtaskq
