// A low room that includes a high one's header: it must not compile.
#include "rcm/packet.h"
