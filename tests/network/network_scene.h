#pragma once

#include "network/kl_bundel.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace vermo::test {

inline constexpr std::uint32_t kNoId = 0xFFFFFFFF;

// A network without a run.
class PlainNetwork final : public BundelVerband {
 public:
  void ProtocolLine(const char* /*text*/) override {}
};

// A protocol file of its own, removed in the end.
class ProtocolFile {
 public:
  ProtocolFile() {
    static std::atomic<unsigned> count{0};
    fName = testing::TempDir() + "cardo_network_" + std::to_string(getpid()) + "_" +
            std::to_string(count++) + ".htm";
  }
  ~ProtocolFile() { std::remove(fName.c_str()); }
  ProtocolFile(const ProtocolFile&) = delete;
  ProtocolFile& operator=(const ProtocolFile&) = delete;

  [[nodiscard]] const std::string& Name() const { return fName; }

 private:
  std::string fName;
};

// A run that records what it is told. Records are added with the defaults of a network that
// links completely: all of them active, points and images variable, cameras fixed.
class TestBundel : private ProtocolFile, public KLBundel {
 public:
  TestBundel() : KLBundel(Name()) {}

  using KLBundel::fDaten;
  using KLBundel::fMessungen;

  std::vector<Messung*> observationWarnings;
  std::vector<Data*> dataWarnings;
  std::vector<IterationInfo> infos;
  std::string protocol;
  std::function<void()> onRunStart;   // all links and weights are set
  std::function<void()> onIteration;  // the iteration is reported

  // Links, weights and lists without an iteration.
  std::int32_t LinkOnly() {
    Settings().fMaxIterations = 0;
    return CalcBundle();
  }

  DataIor& Ior(std::uint32_t id) {
    DataIor ior;
    ior.SetId(id);
    ior.SetParameter(DataIor::kCk, 100.0);
    ior.SetActive(true);
    return fIors.Add(ior);
  }
  DataProjektion& Projektion(std::uint32_t id) {
    DataProjektion projektion;
    projektion.SetId(id);
    projektion.SetValues(100.0, 0.0, 0.0);
    projektion.SetActive(true);
    return fProjektionen.Add(projektion);
  }
  DataEor& Eor(std::uint32_t id, std::uint32_t iorId, std::uint32_t projektionId = kNoId) {
    DataEor eor;
    eor.SetId(id);
    eor.SetIorId(iorId);
    eor.SetProjektionId(projektionId);
    eor.SetActive(true);
    eor.SetVariable(true);
    return fEors.Add(eor);
  }
  DoppelOrientierung& Pair(std::uint32_t id, std::uint32_t eorId, std::uint32_t baseEorId) {
    DoppelOrientierung pair;
    pair.SetIds(id, eorId, baseEorId);
    pair.SetActive(true);
    return fDoppelOrientierungen.Add(pair);
  }
  DataObko& Point(std::uint32_t id, const DataObko::Vector& coordinates = {0.0, 0.0, -10.0}) {
    DataObko point;
    point.ResetUnknowns();
    point.SetId(id);
    point.SetCoordinates(coordinates);
    point.SetActive(true);
    point.SetVariable(true);
    return fObkos.Add(point);
  }
  MessungBiko& Biko(std::uint32_t pointId, std::uint32_t imageId, double x = 0.0, double y = 0.0) {
    MessungBiko biko;
    biko.SetNummer(pointId);
    biko.SetBildNummer(imageId);
    biko[0] = x;
    biko[1] = y;
    biko.SetSigma(0.005, 0.005);
    biko.SetActive(true);
    return fBiko.Add(biko);
  }
  MessungObko& Obko(std::uint32_t pointId, const DataObko::Vector& coordinates = {0.0, 0.0, 0.0}) {
    MessungObko obko;
    obko.SetNummer(pointId);
    for (unsigned i = 0; i < 3; ++i) obko[i] = coordinates[i];
    obko.SetSigma({0.005, 0.005, 0.005});
    obko.SetActive(true);
    return fObko.Add(obko);
  }
  MessungStrecke& Strecke(std::uint32_t first, std::uint32_t second, double length = 1.0) {
    MessungStrecke strecke;
    strecke.SetNummern(first, second);
    strecke.SetStrecke(length, 0.005);
    strecke.SetActive(true);
    return fStrecken.Add(strecke);
  }

  void WarnObservationWithoutData(Messung& observation) override {
    observationWarnings.push_back(&observation);
  }
  void WarnDataWithoutSubData(Data& group) override { dataWarnings.push_back(&group); }
  void OnProtocolText(const char* text) override { protocol += text; }

 protected:
  void OnRunStart() override {
    if (onRunStart) onRunStart();
  }
  bool OnIteration(IterationInfo& info) override {
    const bool stop = KLBundel::OnIteration(info);
    infos.push_back(info);
    if (onIteration) onIteration();
    return stop;
  }
};

}  // namespace vermo::test
