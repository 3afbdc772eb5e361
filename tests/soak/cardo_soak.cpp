// Makes and runs many jobs in one process, good ones and bad ones, and watches the memory.
//
//   cardo_soak JOBS
//
// Prints resident memory and heap in use at ten steps. Ends with 1 if either has grown since the
// first jobs by more than one job takes, and with 2 if a job ended otherwise than it should.

#include "golden/networks.h"
#include "golden/scene.h"
#include "xyz_api.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <unistd.h>

namespace {

struct Memory {
  long resident = 0;  // KiB
  long inUse = 0;     // KiB of the heap, large blocks included
};

Memory Now() {
  long pages = 0;
  if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  const auto heap = mallinfo2();
  return {pages * (::sysconf(_SC_PAGESIZE) / 1024),
          static_cast<long>((heap.uordblks + heap.hblkhd) / 1024)};
}

struct Kind {
  const char* name;
  int status;
  void (*build)(void* job);
  int cancelIn;          // iteration in which the progress function cancels, 0 never
  const char* protocol;  // nullptr: a file of this process
};

void Singular(void* job) {
  golden::BuildMeasured(job);
  golden::AddPoint(job, 7, golden::PlatePoint(7));
  XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
}

// Records that are refused, among good ones.
void Refused(void* job) {
  golden::BuildSmallPlate(job);
  const sXYZ_PictureCoord noSigma{};
  XYZ_SetPictureCoord(job, &noSigma);
  sXYZ_ObjectCoord twice{};
  twice.Id = 1;
  XYZ_SetObjectCoord(job, &twice);
  const sXYZ_Line noLine{};
  XYZ_SetLine(job, &noLine);
  const sXYZ_Plane noPlane{};
  XYZ_SetPlane(job, &noPlane);
  try {
    XYZ_SetParam(job, eXYZ_ParamS0Apriori, -1.0);
  } catch (const vermo::KlException&) {
    XYZ_SetParam(job, eXYZ_ParamBlunderTest, 2);
  }
}

void GrossErrors(void* job) {
  golden::BuildPlate(job);
  golden::AddWrongRay(job, 7, 2, 500.0);
  golden::AddWrongRay(job, 10, 3, 30.0);
}

void Nothing(void* /*job*/) {}

constexpr Kind kKinds[] = {
    {"every kind of record", eXYZ_Ok, golden::BuildEverything, 0, nullptr},
    {"small network", eXYZ_Ok, golden::BuildSmallPlate, 0, nullptr},
    {"free network", eXYZ_Ok, golden::BuildFreePlate, 0, "/dev/null"},
    {"cancelled at once", eXYZ_CalcFailed, golden::BuildPlate, 1, nullptr},
    {"cancelled later", eXYZ_CalcFailed, golden::BuildEverything, 3, nullptr},
    {"singular", eXYZ_SingularSystem, Singular, 0, nullptr},
    {"gross errors", eXYZ_Ok, GrossErrors, 0, nullptr},
    {"refused records", eXYZ_Ok, Refused, 0, nullptr},
    {"protocol that cannot be opened", eXYZ_Ok, golden::BuildSmallPlate, 0, "/no/such/folder/p"},
    {"full disk", eXYZ_Ok, golden::BuildSmallPlate, 0, "/dev/full"},
    {"no images", eXYZ_Ok, golden::BuildMeasured, 0, nullptr},
    {"nothing", eXYZ_CalcFailed, Nothing, 0, nullptr},
};
constexpr int kKindCount = static_cast<int>(sizeof kKinds / sizeof kKinds[0]);

struct Listener {
  int cancelIn = 0;
  std::string text;
};

int Progress(void* /*job*/, sXYZ_CBProgressInfo* info, void* userData) {
  return info->Iteration == static_cast<Listener*>(userData)->cancelIn ? 1 : 0;
}

void Protocol(void* /*job*/, char* text, void* userData) {
  static_cast<Listener*>(userData)->text += text;
}

// Leaves the largest memory seen while the job exists.
bool RunJob(const Kind& kind, int number, const std::string& file, Memory& peak) {
  void* job = XYZ_CreateJob(kind.protocol != nullptr ? kind.protocol : file.c_str());
  XYZ_SetParam(job, eXYZ_ParamLanguage, 1 + number / kKindCount % 2);
  Listener listener{kind.cancelIn, {}};
  XYZ_SetProgressCallback(job, Progress, &listener);
  // Every second time around with the protocol to the function too.
  if (number / kKindCount % 2 == 0) XYZ_SetProtocolCallback(job, Protocol, &listener);
  kind.build(job);
  XYZ_CheckSettings(job);
  const int status = XYZ_CalcBundle(job);
  sXYZ_ObjectCoord point{};
  for (int i = 0; i < XYZ_GetObjectCoordCnt(job); ++i) XYZ_GetObjectCoordAt(job, i, &point);
  const Memory now = Now();
  peak.resident = std::max(peak.resident, now.resident);
  peak.inUse = std::max(peak.inUse, now.inUse);
  XYZ_DestroyJob(job);
  if (status == kind.status) return true;
  std::fprintf(stderr, "job %d, %s: status %d, not %d\n", number, kind.name, status, kind.status);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const int jobs = argc == 2 ? std::atoi(argv[1]) : 0;
  // Four times through all kinds fills what the process keeps for good, buffers of the C library
  // and pages of the heap among them.
  constexpr int kFirst = 4 * kKindCount;
  if (jobs < 2 * kFirst) {
    std::fprintf(stderr, "usage: cardo_soak JOBS, at least %d\n", 2 * kFirst);
    return 2;
  }
  const std::string file = "soak_" + std::to_string(::getpid()) + ".htm";
  const Memory empty = Now();
  Memory first, peak;
  bool isRight = true;
  std::printf("%8s %14s %14s\n", "jobs", "resident KiB", "in use KiB");
  const auto print = [](int done, const Memory& memory) {
    std::printf("%8d %14ld %14ld\n", done, memory.resident, memory.inUse);
    std::fflush(stdout);
  };
  print(0, empty);
  for (int i = 0; i < jobs; ++i) {
    Memory ignored;
    isRight = RunJob(kKinds[i % kKindCount], i, file, i < kFirst ? peak : ignored) && isRight;
    if (i + 1 == kFirst)
      print(i + 1, first = Now());
    else if ((i + 1) % (jobs / 10) == 0)
      print(i + 1, Now());
  }
  ::unlink(file.c_str());
  const Memory last = Now();
  // Resident memory: what a job of the first ones took at most while it existed. The heap in use is
  // exact; fragments of freed blocks that the allocator caches make up for a few KiB.
  const long residentBound = peak.resident - empty.resident;
  const long inUseBound = 16;
  std::printf("grown since job %d: resident %ld KiB (bound %ld), in use %ld KiB (bound %ld)\n",
              kFirst,
              last.resident - first.resident,
              residentBound,
              last.inUse - first.inUse,
              inUseBound);
  if (!isRight) return 2;
  return last.resident - first.resident > residentBound || last.inUse - first.inUse > inUseBound
             ? 1
             : 0;
}
