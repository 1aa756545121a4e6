#pragma once

#include "lab/serve/Http.h"
#include "lab/serve/Root.h"

#include <string>

// The answers of the material process. Everything here may load material into the library.
namespace lab::serve {

// Loads the material that the body of `POST /api/play` names, as the player would. Fails when it
// cannot be played.
std::string CheckMaterial(const Root& root, const std::string& body);

// The folders and records in one folder; for the root also the built-in records.
std::string ListMaterials(const Root& root, const std::string& under);

// The samples in the form of an event.
std::string PreviewMaterial(const Root& root, const std::string& material, double start,
                            double seconds);

// {"duration","lead","least":[…],"most":[…]}: the whole record in a few hundred columns,
// millivolts.
std::string OverviewMaterial(const Root& root, const std::string& material);

// The answer to one question from the server.
HttpAnswer AnswerQuestion(const Root& root, const std::string& question);

} // namespace lab::serve
