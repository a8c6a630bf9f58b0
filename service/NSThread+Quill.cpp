#include "service/NSThread+Quill.h"

#include <unistd.h>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace ferncast {
namespace {

unsigned atLeastOne(long count) {
  return count < 1 ? 1 : static_cast<unsigned>(count);
}

}  // namespace

unsigned numberOfBits() {
#if defined(__x86_64__) || defined(__i386__)
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  // Extended leaf 0x80000001, EDX bit 29: long mode.
  if (__get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx) && (edx & (1u << 29))) return 64;
#endif
  return 32;
}

unsigned numberOfCPUs() {
  return atLeastOne(sysconf(_SC_NPROCESSORS_CONF));
}

unsigned numberOfAvailableCPUs() {
  return atLeastOne(sysconf(_SC_NPROCESSORS_ONLN));
}

}  // namespace ferncast
