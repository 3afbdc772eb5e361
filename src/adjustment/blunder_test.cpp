// The outlier test of a converged adjustment: test values, the threshold of the round, and the
// observations that go out and come back.

#include "adjustment/adjustment.h"
#include "adjustment/blunder_round_info.h"
#include "adjustment/tau_distribution.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "observations/messung.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vermo {
namespace {

constexpr double kProbability = 0.95;
// 0.2 to lead the round, 0.1 to be rejected: the gap is meant.
constexpr double kLeadingRedundancy = 0.2;
constexpr double kTestableRedundancy = 0.1;
// Where the readmission threshold lies between tau and the threshold of the round.
constexpr double kReactivation = 0.5;
// An observation that was rejected so often stays out.
constexpr std::uint32_t kFinalRejection = 2;

// By inner reliability |sqrt(w) v / (sqrt(q) s)|, Baarda's normalised residual with the estimated
// sigma; by redundancy |sqrt(w) v / (q s)|, the error that the residual stands for. Without
// redundancy, S0 or weight there is no test.
double TestValue(const MessungWert& wert, double s0, bool byReliability) {
  const double q = wert.Redundanz();
  const double w = wert.EffectiveWeight();
  if (!(q > 0.0) || !(s0 > 0.0) || w < 0.0) return 0.0;
  return std::fabs(std::sqrt(w) * wert.Residuum() / (byReliability ? std::sqrt(q) : q) / s0);
}

// The worst component of an observation that has enough redundancy to be judged.
const MessungWert* WorstComponent(const Messung& messung) {
  const MessungWert* worst = nullptr;
  for (const MessungWert& wert : messung.CollectComponents()) {
    if (!(wert.Redundanz() > kTestableRedundancy)) continue;
    if (worst == nullptr || wert.Testwert() > worst->Testwert()) worst = &wert;
  }
  return worst;
}

// The threshold follows the largest test value, so that big errors go out first and do not take
// their neighbours with them: at tau while top is below the lower limit, from the upper limit on
// the fraction `damping` of the way from tau to top, and in proportion between the limits.
double OutlierThreshold(const AdjustmentSettings& settings, double tau, double top) {
  const auto [low, high] = std::minmax(settings.fDynamicLower, settings.fDynamicUpper);
  const double a = std::max(low, 0.0) * tau + tau;
  const double c = std::max(high, 0.0) * tau + tau;
  if (a > c) throw KlException(failure::kInvalidParameter);
  double d = settings.fDamping;
  if (c - a > 0.0) d *= std::clamp((top - a) / (c - a), 0.0, 1.0);
  if (!(top > tau)) return tau;
  // Without rounding, so that the leader itself is reached.
  return d == 1.0 ? top : (top - tau) * d + tau;
}

}  // namespace

std::uint32_t Adjustment::BlunderTest(BlunderRoundInfo& info) {
  const auto n = static_cast<std::int32_t>(fStatistik.fBeobachtungen);
  const auto r = static_cast<std::int32_t>(fStatistik.fBedingungsAnzahl - fStatistik.fUnbekannte +
                                           fStatistik.fBeobachtungen);
  const double tau = TauCritical(n, r, kProbability);
  const bool byReliability =
      fSettings.fTestMethod == static_cast<std::int32_t>(TestMethod::InnerReliability);

  double top = 0.0;
  for (const MessungEntry& entry : fMessungen) {
    Messung& messung = *entry.messung;
    if (!messung.IsActive()) continue;
    const bool canLead = !messung.IsAusreisser() && messung.TakesPartInBlunderTest();
    for (MessungWert& wert : messung.CollectComponents()) {
      const double testwert = TestValue(wert, fStatistik.fS0, byReliability);
      wert.SetTestwert(testwert);
      if (canLead && wert.Redundanz() > kLeadingRedundancy && testwert > top) top = testwert;
    }
  }

  const double threshold = OutlierThreshold(fSettings, tau, top);
  const double readmission = (threshold - tau) * kReactivation + tau;
  info.testwertKritisch = tau;
  info.testwertAusreisser = threshold;
  info.testwertReaktivierung = readmission;

  std::uint32_t count = 0;
  for (MessungEntry& entry : fMessungen) {
    Messung& messung = *entry.messung;
    if (!messung.IsActive()) continue;
    const MessungWert* worst = WorstComponent(std::as_const(messung));
    if (worst == nullptr) continue;
    const double testwert = worst->Testwert();
    if (testwert >= threshold) {
      if (!messung.TakesPartInBlunderTest()) continue;
      if (!messung.IsAusreisser()) {
        ++entry.fAusreisserZaehler;
        fGeaendert = true;
        info.ausreisser.push_back({&messung, testwert});
      }
      ++count;
      messung.SetAusreisser();
    } else if (messung.IsAusreisser() && entry.fAusreisserZaehler < kFinalRejection &&
               readmission > testwert) {
      messung.ClearAusreisser();
      fGeaendert = true;
      info.reaktiviert.push_back({&messung, testwert});
    }
  }
  return count;
}

}  // namespace vermo
