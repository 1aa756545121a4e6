#pragma once

#include "lab/material/readers/SourceRecord.h"
#include "lab/material/readers/WfdbHeader.h"

#include <functional>
#include <memory>

namespace lab {

using OpenWfdbPiece = std::function<std::unique_ptr<SourceReader>(const WfdbHeader&)>;

// What the header says of a signal of a record of so many frames. Fails for a gain of no use.
SourceSignal DescribeWfdbSignal(const WfdbHeader& header, std::size_t number, int64_t frames);

// Opens a record of several segments, which `open` opens one by one. In the fixed layout all have
// the record's signals in the same order. In the variable layout the first, of length 0, names the
// record's signals, and those of the others are matched by their descriptions. What a segment does
// not have, and the gaps, are missing samples.
std::unique_ptr<SourceReader> OpenWfdbSegments(const WfdbHeader& header, OpenWfdbPiece open);

} // namespace lab
