// Which vector bodies a call may use.
#pragma once

namespace kvl {

// Each level includes the ones before it.
enum class InstructionSet { scalar, sse2, ssse3, sse41, avx2 };

// The level that operations use: scalar until initialisation, then the highest that the processor
// and the operating system support, but no higher than the limit.
InstructionSet instructionSet();

// Finds the level; part of initialisation, after DetectCpuFeatures.
void detectInstructionSet();

// Holds the level down, so that tests and benchmarks can compare the bodies.
void limitInstructionSet(InstructionSet highest);

}  // namespace kvl
