// The addresses of the services on the internet that the program speaks to. Nothing else in the tree
// names a host, and every operation that uses one can be given another, as the tests do.
#pragma once

namespace ZEPHO {

// The hub that packs are shared on. A placeholder: the top-level domain .example belongs to nobody,
// so a build that sets no other address reaches no one.
inline constexpr const char* hubAddress = "https://hub.zephon.example:443/API/hub.php";

}  // namespace ZEPHO
