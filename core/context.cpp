#include "core/context.h"

namespace rcmd {

int gps_send_interval = 60;

} // namespace rcmd
