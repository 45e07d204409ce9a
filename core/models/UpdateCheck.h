// Asks the release host, when the user wants to know, whether there is a newer program.
//
// Keeps nothing between two calls. The caller makes sure that one runs at a time, and not on the main
// thread.
#pragma once

#include <string>

#include "core/base/Addresses.h"
#include "core/models/ReleasePick.h"

namespace zepho {

struct UpdateAddresses {
    std::string api = UpdateSource::api;    // the list of releases as JSON
    std::string feed = UpdateSource::feed;  // the same as an Atom feed, asked where the first fails
};

// Blocks until there is an answer; every failure is a text in the result.
[[nodiscard]] UpdateInfo checkForUpdate(const UpdateAddresses& addresses = {});

}  // namespace zepho
