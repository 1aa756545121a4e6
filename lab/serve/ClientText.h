#pragma once

#include "lab/common/Failure.h"
#include "lab/serve/HttpFailure.h"

namespace lab::serve {

// The failure in the words of a client, which sends fields of JSON where the command line has
// options: "--map" is "map", and every text is one line.
HttpFailure ForClient(const Failure& failure);

} // namespace lab::serve
