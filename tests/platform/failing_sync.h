// fsync(2), which a test may let fail; one that has failed is the C library's again.
#pragma once

namespace sync_test {

extern int syncs_before_failure; ///< so many succeed, then one fails; negative: none does

} // namespace sync_test
