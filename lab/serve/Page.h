#pragma once

#include <string>

namespace lab::serve {

// The page: one document that loads nothing else.
const std::string& PageText();

// The content security policy, which admits only the page's own style and script, by their digests.
const std::string& PagePolicy();

} // namespace lab::serve
