// The version that rcm-server and rcmctl report.
#pragma once

namespace server {

inline constexpr char kVersion[] = "1.0.0";

} // namespace server
