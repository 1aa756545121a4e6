#pragma once

#include "lab/material/readers/SourceRecord.h"
#include "lab/material/readers/WfdbHeader.h"

#include <functional>
#include <memory>

namespace lab {

using OpenWfdbPiece = std::function<std::unique_ptr<SourceReader>(const WfdbHeader&)>;

// The header's description of a record, without its signals.
SourceRecord DescribeWfdbRecord(const WfdbHeader& header);

// The header's description of a signal of a record of `frames` frames. Fails for an unusable gain.
SourceSignal DescribeWfdbSignal(const WfdbHeader& header, std::size_t number, int64_t frames);

// Opens a record of several segments, which `open` opens one by one. In the fixed layout all have
// the record's signals in the same order. In the variable layout the first, of length 0, names the
// record's signals, and those of the others are matched by their descriptions. Signals that a
// segment lacks, and gaps, are missing samples.
std::unique_ptr<SourceReader> OpenWfdbSegments(const WfdbHeader& header, OpenWfdbPiece open);

} // namespace lab
