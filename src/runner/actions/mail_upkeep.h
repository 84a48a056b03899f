// Puts the timed chores of the mail side behind the operations of the mail room.
#pragma once

namespace zvtaskq {

/// From now on this build switches vacation messages and ages the block lists, by the process's configuration.
void provideMailUpkeep();

}  // namespace zvtaskq
