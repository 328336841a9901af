#include "core/initialise.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/cpu_features.h"
#include "core/instruction_set.h"
#include "core/platform.h"
#include "kvl/kvl.h"

namespace kvl {
namespace {

LogicalProcessorEntry entry(uint32_t relationship, uint64_t mask, uint8_t level = 0) {
  LogicalProcessorEntry e = {};
  e.relationship = relationship;
  e.processorMask = mask;
  e.detail[0] = level;
  return e;
}

// Four cores of two threads each on one socket, two NUMA nodes, and entries of kinds to ignore.
const std::vector<LogicalProcessorEntry> fourCores = {
    entry(0, 0x3),  entry(0, 0xC),  entry(0, 0x30),  entry(0, 0xC0),   entry(1, 0xF),
    entry(1, 0xF0), entry(2, 3, 1), entry(2, 3, 1),  entry(2, 3, 2),   entry(2, 255, 3),
    entry(2, 1, 4), entry(3, 0xFF), entry(4, ~0ull), entry(0xFFFF, 1),
};

// The made-up machine behind the seam. Functions of the seam carry no context.
struct Machine {
  std::vector<LogicalProcessorEntry> entries = fourCores;
  uint32_t extraLength = 0;
  bool hasModule = true, hasLookup = true, hasMemory = true, lookupWorks = true;
  int blocks = 0;
  std::string asked, output;
  CpuidRegisters leaf0 = {7, 0, 0, 0}, leaf1 = {}, leaf7 = {};
  uint64_t registerState = 7;
} g_machine;

int lookUp(LogicalProcessorEntry* entries, uint32_t* length) {
  const auto needed = static_cast<uint32_t>(g_machine.entries.size() * sizeof *entries);
  const bool fill = entries != nullptr && *length >= needed && g_machine.lookupWorks;
  if (fill) std::memcpy(entries, g_machine.entries.data(), needed);
  *length = needed + g_machine.extraLength;
  return fill;
}

class Initialise : public testing::Test {
 protected:
  void SetUp() override {
    saved_ = g_platform;
    g_machine = {};
    g_platform.performanceFrequency = [] { return int64_t{12345}; };
    g_platform.moduleHandle = [](const char* name) -> void* {
      g_machine.asked = name;
      return g_machine.hasModule ? &g_machine : nullptr;
    };
    g_platform.procedureAddress = [](void*, const char* name) -> LogicalProcessorLookup {
      g_machine.asked += std::string(" ") + name;
      return g_machine.hasLookup ? lookUp : nullptr;
    };
    g_platform.allocate = [](size_t bytes) -> void* {
      if (!g_machine.hasMemory) return nullptr;
      ++g_machine.blocks;
      return std::malloc(bytes);
    };
    g_platform.release = [](void* block) {
      --g_machine.blocks;
      std::free(block);
    };
    g_platform.debugOutput = [](const char* line) { g_machine.output += line; };
    g_platform.cpuid = [](uint32_t leaf, uint32_t) {
      return leaf == 0 ? g_machine.leaf0 : leaf == 1 ? g_machine.leaf1 : g_machine.leaf7;
    };
    g_platform.enabledRegisterState = [] { return g_machine.registerState; };
  }
  void TearDown() override {
    g_platform = saved_;
    initialise();
  }

 private:
  PlatformCalls saved_;
};

constexpr uint32_t sse2 = 1u << 26;
constexpr uint32_t sse3 = 1, ssse3 = 1u << 9, sse41 = 1u << 19, sse42 = 1u << 20;
constexpr uint32_t osxsave = 1u << 27, avx = 1u << 28, avx2 = 1u << 5;

TEST_F(Initialise, CountsAMachineOfFourCoresAndEightThreads) {
  InitKVLWrapper();
  EXPECT_EQ(g_machine.asked, "kernel32 GetLogicalProcessorInformation");
  EXPECT_EQ(g_perfFrequency, 12345);
  EXPECT_EQ(KVL_GetNumOpenMPThreads(), 4);
  EXPECT_EQ(g_machine.output,
            "\nKVLWrapper - GetProcessorInfo results:\n"
            "Number of NUMA nodes: 2\n"
            "Number of physical processor packages: 1\n"
            "Number of processor cores: 4\n"
            "Number of logical processors: 8\n"
            "Number of processor L1/L2/L3 caches: 2/1/1\n");
  EXPECT_EQ(g_machine.blocks, 0);
}

TEST_F(Initialise, WalksWholeEntriesOnly) {
  g_machine.entries = {entry(0, 1), entry(0, 2)};
  g_machine.extraLength = 31;
  InitKVLWrapper();
  EXPECT_EQ(g_processorInfo.processorCores, 2u);
}

TEST_F(Initialise, FallsBackSilentlyWhereverTheLookupFails) {
  const std::vector<std::pair<const char*, void (*)()>> failures = {
      {"module", [] { g_machine.hasModule = false; }},
      {"procedure", [] { g_machine.hasLookup = false; }},
      {"length", [] { g_machine.entries.clear(); }},
      {"memory", [] { g_machine.hasMemory = false; }},
      {"second call", [] { g_machine.lookupWorks = false; }},
  };
  for (const auto& [step, fail] : failures) {
    SCOPED_TRACE(step);
    g_machine = {};
    g_processorInfo = {9, 9, 9, 9, 9, 9, 9};
    fail();
    ProcessorInfo untouched = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(QueryProcessorInfo(untouched), 0);
    EXPECT_EQ(untouched.l3Caches, 9u);
    InitKVLWrapper();
    EXPECT_EQ(KVL_GetNumOpenMPThreads(), omp_get_num_procs());
    EXPECT_EQ(g_processorInfo.processorCores, static_cast<uint32_t>(omp_get_num_procs()));
    EXPECT_EQ(g_processorInfo.logicalProcessors, g_processorInfo.processorCores);
    EXPECT_EQ(g_processorInfo.l1Caches + g_processorInfo.numaNodes, 0u);
    EXPECT_EQ(g_machine.output, "");
    EXPECT_EQ(g_machine.blocks, 0);
  }
}

TEST_F(Initialise, KeepsTheTeamWhereNoCoreIsTold) {
  g_machine.entries = {entry(1, 1)};
  omp_set_num_threads(5);
  InitKVLWrapper();
  EXPECT_EQ(KVL_GetNumOpenMPThreads(), 5);
}

TEST_F(Initialise, SetsFlagsFromTheProcessorsAnswers) {
  const auto flags = [] {
    InitKVLWrapper();
    return std::vector<int>{g_hasSSE2, g_hasSSSE3, g_hasSSE41, g_hasSSE42, g_hasAVX, g_hasAVX2};
  };
  using Flags = std::vector<int>;
  g_machine.leaf1 = {0, 0, sse3, sse2};
  EXPECT_EQ(flags(), (Flags{1, 0, 0, 0, 0, 0})) << "SSE3 without SSSE3";
  g_machine.leaf1.ecx = ssse3;
  EXPECT_EQ(flags(), (Flags{1, 0, 0, 0, 0, 0})) << "SSSE3 without SSE3";
  g_machine.leaf1.ecx = sse3 | ssse3 | sse41;
  EXPECT_EQ(flags(), (Flags{1, 1, 1, 0, 0, 0}));
  g_machine.leaf1.ecx = sse42 | avx;
  g_machine.leaf7.ebx = avx2;
  g_machine.leaf0.eax = 1;
  EXPECT_EQ(flags(), (Flags{1, 0, 0, 1, 1, 1})) << "leaf 7 is asked for unchecked";
  g_machine.leaf0.eax = 0;
  EXPECT_EQ(flags(), (Flags{0, 0, 0, 0, 0, 0})) << "no leaf 1";
}

TEST_F(Initialise, UsesWideRegistersOnlyWhereTheSystemSavesThem) {
  const auto level = [] {
    InitKVLWrapper();
    return instructionSet();
  };
  const CpuidRegisters whole = {0, 0, sse3 | ssse3 | sse41 | osxsave | avx, sse2};
  g_machine.leaf1 = whole;
  g_machine.leaf7.ebx = avx2;
  EXPECT_EQ(level(), InstructionSet::avx2);
  g_machine.registerState = 3;
  EXPECT_EQ(level(), InstructionSet::sse41) << "the system saves no wide registers";
  g_machine.registerState = 7;
  g_machine.leaf1.ecx = whole.ecx & ~osxsave;
  EXPECT_EQ(level(), InstructionSet::sse41) << "no OSXSAVE";
  g_machine.leaf1 = whole;
  g_machine.leaf0.eax = 6;
  EXPECT_EQ(level(), InstructionSet::sse41) << "no leaf 7";
  g_machine.leaf0.eax = 7;
  g_machine.leaf1.ecx = whole.ecx & ~sse41;
  EXPECT_EQ(level(), InstructionSet::ssse3);
  g_machine.leaf1.ecx = whole.ecx & ~ssse3;
  EXPECT_EQ(level(), InstructionSet::sse2) << "each level includes the ones before it";
  g_machine.leaf1.edx = 0;
  EXPECT_EQ(level(), InstructionSet::scalar);

  g_machine.leaf1 = whole;
  limitInstructionSet(InstructionSet::ssse3);
  EXPECT_EQ(level(), InstructionSet::ssse3);
  limitInstructionSet(InstructionSet::avx2);
}

TEST(RealMachine, ReportsAtLeastOneOfEachAndATeamOfItsCores) {
  initialise();
  EXPECT_GE(g_processorInfo.processorCores, 1u);
  EXPECT_GE(g_processorInfo.logicalProcessors, g_processorInfo.processorCores);
  EXPECT_LE(g_processorInfo.logicalProcessors, static_cast<uint32_t>(omp_get_num_procs()));
  EXPECT_GE(g_processorInfo.processorPackages, 1u);
  EXPECT_EQ(g_processorInfo.processorCores, static_cast<uint32_t>(KVL_GetNumOpenMPThreads()));
  EXPECT_GT(g_perfFrequency, 0);
  EXPECT_EQ(g_hasSSE2, 1) << "every 64-bit x86 processor has it";
}

}  // namespace
}  // namespace kvl
