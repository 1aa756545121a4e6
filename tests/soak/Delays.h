#pragma once

// Whether system calls on the way to a connection are delayed at random.
void DelaySteps(bool on);
