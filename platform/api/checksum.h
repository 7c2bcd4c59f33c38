// The two checksums of the wire, the nvram image and the firmware image.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

/// Polynomial x^16 + x^12 + x^5 + 1, least significant bit first (0x8408), no final inversion.
/// "123456789" from 0xFFFF gives 0x6F91; no bytes give `initial`.
uint16_t crc16(const void* data, size_t length, uint16_t initial);

/// Polynomial 0xEDB88320 (reflected), no final inversion. "123456789" from 0xFFFFFFFF gives
/// 0x340BC6D9; no bytes give `initial`. A long text may be fed piece by piece.
uint32_t crc32(const void* data, size_t length, uint32_t initial);
}
