#pragma once

// Body of the play thread: answers each of the simulator's requests with one packet buffer until
// the material ends, a stop is asked for or the simulator is gone; then ends the response reader
// and tells the simulator to end the output.
void* PlayRawDataThread(void* ignored);
