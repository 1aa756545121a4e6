#include "lab/serve/HttpFailure.h"

#include "lab/common/Json.h"

namespace lab::serve {

void Refuse(int httpStatus, const std::string& where, const std::string& problem,
            const std::string& cure) {
    throw HttpFailure(httpStatus, where, problem, cure);
}

void RefuseOvertaken() {
    constexpr int kConflict = 409;
    Refuse(kConflict, "play", "was superseded by a later order.");
}

int HttpStatusOf(const Failure& failure) {
    constexpr int kUnprocessable = 422;
    constexpr int kUnavailable = 503;
    constexpr int kInternal = 500;
    if (const auto* http = dynamic_cast<const HttpFailure*>(&failure)) {
        return http->HttpStatus();
    }
    switch (failure.Status()) {
    case kUsage:
    case kMaterial:
    case kDifferent:
        return kUnprocessable;
    case kNoSimulator:
    case kOutputLost:
        return kUnavailable;
    default:
        return kInternal;
    }
}

std::string ErrorJson(const Failure& failure) {
    Json json;
    json.BeginObject().Key("error").BeginObject();
    json.Field("where", failure.Where())
        .Field("problem", failure.Problem())
        .Field("cure", failure.Cure());
    json.EndObject().EndObject();
    return json.Text();
}

} // namespace lab::serve
