#pragma once

#include <string>

namespace lab::serve {

// The page: one document that loads nothing.
const std::string& PageText();

// The content security policy that lets the page's own style and script in, by their digests, and
// nothing else.
const std::string& PagePolicy();

} // namespace lab::serve
