#include "tools/ravo/JsonFailure.h"

#include <cstdio>

namespace cli {

void WriteError(lab::Json& json, const lab::Failure& failure) {
    json.Key("error")
        .BeginObject()
        .Field("status", static_cast<int>(failure.Status()))
        .Field("where", failure.Where())
        .Field("problem", failure.Problem())
        .Field("cure", failure.Cure())
        .EndObject();
}

void PrintJsonFailure(const lab::Failure& failure) {
    lab::Json json;
    json.BeginObject();
    WriteError(json, failure);
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
}

} // namespace cli
