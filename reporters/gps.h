// The position report: every gps_send_interval seconds, the position that other software keeps in
// nvram goes to the server in one GPS packet, as the text "lat=LAT;long=LONG" and its NUL.
#pragma once

namespace rcmd {

/// The callback of rcm_gpssender. Sends once and waits for nothing. @param arg  the RcmContext
void rcm_gpssender_func(void* arg);

} // namespace rcmd
