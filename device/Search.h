#pragma once

// Finding the simulator among the serial ports /dev/ttyACM0 to /dev/ttyACM127.

// Opens, locks and configures the port and checks whether the simulator is there.  True leaves it
// open; false leaves nothing open and nothing locked.
bool DoFindDevice(int port);

// The same for one port, or for -1 the first of all that holds the simulator.
bool FindDevice(int port);

// Searches up to `attempts` times, with a second's pause after each failure, the last included.
bool DeviceConnect(int port, int attempts);
