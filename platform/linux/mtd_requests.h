// The MTD requests of the kernel, numbered as the architecture numbers them.
#pragma once

#include "platform/api/mtd.h"

#include <sys/ioctl.h>

namespace rcmd {

constexpr unsigned long kMemGetInfo = _IOR('M', 1, MtdInfo);
constexpr unsigned long kMemErase = _IOW('M', 2, MtdErase);
constexpr unsigned long kMemUnlock = _IOW('M', 6, MtdErase);

/// A request number in the layout of MIPS: 3 bits of direction (2 reads, 4 writes), 13 of size.
constexpr unsigned long mips_request(unsigned long direction, unsigned long number,
                                     unsigned long bytes) {
  return direction << 29 | bytes << 16 | static_cast<unsigned long>('M') << 8 | number;
}

static_assert(mips_request(2, 1, sizeof(MtdInfo)) == 0x40204D01UL);
static_assert(mips_request(4, 6, sizeof(MtdErase)) == 0x80084D06UL);
static_assert(mips_request(4, 2, sizeof(MtdErase)) == 0x80084D02UL);

#ifdef __mips__
static_assert(kMemGetInfo == 0x40204D01UL && kMemUnlock == 0x80084D06UL &&
              kMemErase == 0x80084D02UL);
#endif

} // namespace rcmd
