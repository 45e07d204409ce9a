// From the forms of the API to the values of the service. Pure; nothing throws.
#pragma once

#include <optional>
#include <string_view>

#include "core/base/Json.h"
#include "core/base/TtsTypes.h"
#include "core/http/HttpMessage.h"

namespace zepho {

// A line as a JSON object or a query spells it, not yet normalised.
TtsRequest reqFromJson(const Json* object);
TtsRequest reqFromQuery(const HttpRequest& request);

TtsPriority ttsPriorityFromText(std::string_view text);

// The answer to a body that is no JSON object.
HttpResponse badJson();

}  // namespace zepho
