// The processor queries of the thread extensions. Any thread may call them.
#pragma once

namespace ferncast {

// 64 when the processor can run x86-64 code (its long-mode flag), 32 on every other processor.
unsigned numberOfBits();
// The number of processors configured in the system; at least 1.
unsigned numberOfCPUs();
// The number of processors online now; at least 1.
unsigned numberOfAvailableCPUs();

}  // namespace ferncast
