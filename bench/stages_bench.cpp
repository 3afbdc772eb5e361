// One figure per stage of an adjustment: an image coordinate with all its coefficients, assembly,
// factorisation with solution, cofactors, redundancy numbers, the tables of the protocol, on the
// blocks and, for comparison, on the envelope. The network is seeded and the same in every run.

#include "checks/warnings.h"
#include "linalg/block_system.h"
#include "linalg/envelope_system.h"
#include "linalg/normal_system.h"
#include "observations/bedingung_hlm.h"
#include "observations/equation_block.h"
#include "observations/messung_biko.h"
#include "protocol/old_style_message_handler.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_obko.h"
#include "unknowns/network_settings.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace vermo;

// Images on a circle around a cloud of points; every image sees every point.
class Scene {
 public:
  Scene(std::uint32_t images, std::uint32_t points, std::unique_ptr<NormalSystem> system)
      : fEors(images), fPoints(points), fSystem(std::move(system)) {
    fIor.SetParameter(DataIor::kCk, -30.0);
    fIor.SetParameter(DataIor::kA1, 1e-5);
    fIor.SetR0(10.0);
    fIor.SetParameterMask(DataIor::Mask(0x3FF));
    Enable(fIor);
    std::mt19937_64 generator(20260101);
    const auto uniform = [&generator] {
      return static_cast<double>(generator() >> 11U) * 0x1p-53 * 2.0 - 1.0;
    };
    for (DataObko& point : fPoints) {
      point.SetCoordinates({uniform(), uniform(), 0.3 * uniform()});
      Enable(point);
    }
    for (std::uint32_t i = 0; i < images; ++i) {
      const double angle = 6.0 * i / images;
      DataEor& eor = fEors[i];
      eor.fTranslation = {2.0 * std::cos(angle), 2.0 * std::sin(angle), 4.0};
      Enable(eor);
    }
    fBikos.reserve(std::size_t{images} * points);
    std::uint32_t image = 0;
    for (DataEor& eor : fEors) {
      eor.SetId(++image);
      eor.SetIor(&fIor);
    }
    for (DataEor& eor : fEors)
      for (DataObko& point : fPoints) {
        MessungBiko& biko = fBikos.emplace_back();
        biko.SetNummer(point.Id());
        biko.SetPunkt(&point);
        biko.SetEor(&eor);
        biko.SetIor(&fIor);
        biko.SetSigma(0.001, 0.001);
        biko[0] = biko[1] = 0.0;
        biko.SetBildNummer(eor.Id());
        biko.SetActive(true);
        biko.SetWeights(fSettings);
        point.AddMessung(&biko);
        eor.AddMessung(&biko);
      }
    std::uint32_t next = 0;
    const auto assign = [&](Data& group) {
      fLayout.starts.push_back(next);
      next = group.AssignUnknowns(next);
    };
    for (DataObko& point : fPoints) assign(point);
    for (DataEor& eor : fEors) assign(eor);
    assign(fIor);
    fLayout.starts.push_back(next);
    fLayout.leading = points;
    fUnknowns = next;
    Assemble();
  }

  // Control through the diagonal: this bench is about time, not about a datum.
  void Assemble() {
    fSystem->SetLayout(fLayout);
    do {
      fSystem->Reset(fUnknowns, 0);
      for (MessungBiko& biko : fBikos) biko.AddToNormals(*fSystem, fBlock);
      for (std::uint32_t i = 0; i < fUnknowns; ++i) {
        DesignRow row;
        row.push(i, 1.0);
        fSystem->AddEquation(row, 1.0, 0.0);
      }
    } while (!fSystem->Seal());
  }

  void ComputeRedundancy() {
    for (MessungBiko& biko : fBikos) biko.ComputeRedundancy(*fSystem, fBlock);
  }

  // What a report of the scene reads.
  ProtocolResults Results() {
    ProtocolResults results;
    results.cameras = {&fIor};
    for (const DataEor& eor : fEors) results.exteriorOrientations.push_back(&eor);
    for (const DataObko& point : fPoints) results.objectPoints.push_back(&point);
    for (const MessungBiko& biko : fBikos) results.imageCoordinates.push_back(&biko);
    results.translation = &fTranslation;
    results.rotation = &fRotation;
    results.scale = &fScale;
    results.system = fSystem.get();
    results.warnings = &fWarnings;
    return results;
  }

  MessungBiko& Biko() { return fBikos.front(); }
  EquationBlock& Block() { return fBlock; }
  NormalSystem& System() { return *fSystem; }
  [[nodiscard]] std::uint32_t Unknowns() const { return fUnknowns; }
  [[nodiscard]] std::size_t Rays() const { return fBikos.size(); }

 private:
  static void Enable(Data& group) {
    group.SetActive(true);
    group.SetVariable(true);
  }

  NetworkSettings fSettings;
  DataIor fIor;
  std::vector<DataEor> fEors;
  std::vector<DataObko> fPoints;
  std::vector<MessungBiko> fBikos;
  EquationBlock fBlock;
  SystemLayout fLayout;
  std::unique_ptr<NormalSystem> fSystem;
  std::uint32_t fUnknowns = 0;
  BedingungHlmTrans fTranslation;
  BedingungHlmRot fRotation;
  BedingungHlmM fScale;
  WarningList fWarnings;
};

template <typename Engine>
std::unique_ptr<Scene> MakeScene(const benchmark::State& state) {
  return std::make_unique<Scene>(static_cast<std::uint32_t>(state.range(0)),
                                 static_cast<std::uint32_t>(state.range(1)),
                                 std::make_unique<Engine>());
}

void Report(benchmark::State& state, const Scene& scene) {
  state.counters["unknowns"] = scene.Unknowns();
  state.counters["rays"] = static_cast<double>(scene.Rays());
}

void ImageCoordinate(benchmark::State& state) {
  Scene scene(2, 4, std::make_unique<BlockSystem>());
  for (auto _ : state) {
    benchmark::DoNotOptimize(scene.Biko().ObservationEquations(scene.Block()));
    benchmark::ClobberMemory();
  }
}

template <typename Engine>
void Assembly(benchmark::State& state) {
  const auto scene = MakeScene<Engine>(state);
  for (auto _ : state) scene->Assemble();
  Report(state, *scene);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scene->Rays()));
}

template <typename Engine>
void Factorisation(benchmark::State& state) {
  const auto scene = MakeScene<Engine>(state);
  for (auto _ : state) {
    state.PauseTiming();
    scene->Assemble();
    state.ResumeTiming();
    scene->System().FactorizeAndSolve(true);
  }
  Report(state, *scene);
}

template <typename Engine>
void DiagonalCofactors(benchmark::State& state) {
  const auto scene = MakeScene<Engine>(state);
  scene->System().FactorizeAndSolve(true);
  for (auto _ : state) benchmark::DoNotOptimize(scene->System().DiagonalCofactors().data());
  Report(state, *scene);
}

template <typename Engine>
void InverseCofactors(benchmark::State& state) {
  const auto scene = MakeScene<Engine>(state);
  scene->System().FactorizeAndSolve(true);
  for (auto _ : state) scene->System().InvertCofactors();
  Report(state, *scene);
}

template <typename Engine>
void RedundancyNumbers(benchmark::State& state) {
  const auto scene = MakeScene<Engine>(state);
  scene->System().FactorizeAndSolve(true);
  scene->System().InvertCofactors();
  for (auto _ : state) scene->ComputeRedundancy();
  Report(state, *scene);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scene->Rays()));
}

// The tables of a finished run into a file.
void Protocol(benchmark::State& state) {
  const auto scene = MakeScene<BlockSystem>(state);
  scene->System().FactorizeAndSolve(true);
  scene->System().InvertCofactors();
  const ProtocolResults results = scene->Results();
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "cardo_bench.htm";
  for (auto _ : state) {
    OldStyleMessageHandlerEN writer(file.string());
    writer.RunFinished(results);
  }
  state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(file));
  std::filesystem::remove(file);
  Report(state, *scene);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scene->Rays()));
}

// The envelope keeps no larger network within seconds.
void OnEnvelope(benchmark::internal::Benchmark* stage) {
  stage->Args({10, 100})->Args({40, 400})->Unit(benchmark::kMillisecond);
}
void OnBlocks(benchmark::internal::Benchmark* stage) {
  OnEnvelope(stage);
  stage->Args({100, 1000});
}

BENCHMARK(ImageCoordinate);
BENCHMARK_TEMPLATE(Assembly, BlockSystem)->Apply(OnBlocks);
BENCHMARK_TEMPLATE(Factorisation, BlockSystem)->Apply(OnBlocks);
BENCHMARK_TEMPLATE(RedundancyNumbers, BlockSystem)->Apply(OnBlocks);
BENCHMARK(Protocol)->Apply(OnBlocks);
BENCHMARK_TEMPLATE(Assembly, EnvelopeSystem)->Apply(OnEnvelope);
BENCHMARK_TEMPLATE(Factorisation, EnvelopeSystem)->Apply(OnEnvelope);
BENCHMARK_TEMPLATE(DiagonalCofactors, EnvelopeSystem)->Apply(OnEnvelope);
BENCHMARK_TEMPLATE(InverseCofactors, EnvelopeSystem)->Apply(OnEnvelope);
BENCHMARK_TEMPLATE(RedundancyNumbers, EnvelopeSystem)->Apply(OnEnvelope);

}  // namespace

BENCHMARK_MAIN();
