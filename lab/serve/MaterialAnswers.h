#pragma once

#include "lab/serve/Http.h"
#include "lab/serve/Root.h"

#include <string>

// What the material process answers. Everything here may load material into the library.
namespace lab::serve {

// Loads what a body of `POST /api/play` asks for, as the player would. Fails when it cannot play.
std::string CheckMaterial(const Root& root, const std::string& body);

// The folders and records in one folder; of the root's also the built-in records.
std::string ListMaterials(const Root& root, const std::string& under);

// The samples in the form of an event.
std::string PreviewMaterial(const Root& root, const std::string& material, double start,
                            double seconds);

// {"duration","lead","least":[…],"most":[…]}: the whole record in a few hundred columns,
// millivolts.
std::string OverviewMaterial(const Root& root, const std::string& material);

// The answer to one question of the server.
HttpAnswer AnswerQuestion(const Root& root, const std::string& question);

} // namespace lab::serve
