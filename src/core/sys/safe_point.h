// Places where the process may stop to answer what a signal handler noted: between lines, in waits and sleeps.
#pragma once

namespace zvtaskq {

/// Chooses what is done at every safe point; null for nothing.
void setSafePointAction(void (*action)());
/// Says that this is a safe point. The action runs under whatever identity the process has and leaves it.
void atSafePoint();
/// Sleeps for `milliseconds`, with a safe point whenever a signal interrupts and at the end.
void sleepSafely(int milliseconds);

}  // namespace zvtaskq
