/* The checksum that miniz leaves to its builder. */

#include <libdeflate.h>
#include <miniz.h>

mz_ulong mz_crc32(mz_ulong crc, const mz_uint8* bytes, size_t length) {
  return libdeflate_crc32((uint32_t)crc, bytes, length);
}
