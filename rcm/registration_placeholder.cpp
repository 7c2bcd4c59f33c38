// Holds the place of the registration until it is there.
#include "rcm/registration.h"

namespace rcmd {

int do_rcm_register(RcmContext*) {
  return 0;
}

} // namespace rcmd
