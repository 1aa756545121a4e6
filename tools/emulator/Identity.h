#pragma once

#include "tools/emulator/Settings.h"

#include <string>

// The texts that identify a simulator, as its firmware would send them.
namespace emulator {

FlashTable DefaultFlashTable(Unit unit);

// The answer of 19 bytes to the legacy model request: name, blank, "TR" and seven characters, zero.
Bytes DefaultLegacyReply();

std::string LongSerial(const FlashTable& flash);

// The text that determines the name of the calibration file.
std::string ShortSerial(Unit unit, const Behaviour& behaviour);

// The path at which the driver expects this unit's calibration file.
std::string CalibrationFilePath(Unit unit, const Behaviour& behaviour);

} // namespace emulator
