#include "failure_help.h"

#include "bundle_job.h"
#include "datum_check.h"

#include <fmt/format.h>
#include <string_view>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

constexpr int kTranslationBits = 0x700;
constexpr int kRotationBits = 0x3800;
constexpr int kScaleBit = 0x4000;

// Advice for the failures that share the status eXYZ_CalcFailed, by their code in the protocol.
std::string_view AdviceForCode(int code) {
  switch (code) {
    case -12003:
      return "Check that dynamic_lower is not above dynamic_upper.";
    case -12004:
      return "S0 is above s0_limit, so the residuals are far from the standard deviations. Look "
             "for wrong approximate values, exchanged point numbers, a wrong sign of ck or wrong "
             "units; raise s0_limit if the values are meant.";
    case -12006:
      return "There is nothing to estimate: every active point, image and camera is fixed. Free "
             "some of them (fixed = 0).";
    case -12007:
      return "A group of unknowns lost its place in the system. This is not expected to happen; "
             "please report it with the job folder.";
    case -12008:
      return "One id stands for an image and for a relative orientation. Give one of them another "
             "id.";
    case -12011:
    case -12002:
      return "No observation is left that can be used. An image coordinate needs an active point, "
             "an active image and an active camera; observations with outlier = 1 do not count, "
             "and a ray that is off by more than angle_limit at the start is taken as outlier. "
             "With "
             "solvability_check = true, groups that are not determined are left out one after "
             "another.";
    case -13001:
      return "A variance came out negative: the system is nearly singular. Estimate fewer camera "
             "parameters, or add observations that determine them.";
    case -39004:
      return "The factorisation broke down. Look for values that are far too large or too small.";
    case -41001:
      return "An object point lies in the plane of a projection centre, so it has no image. Check "
             "the approximate values of points and images.";
    case -9999:
      return "The run ended unexpectedly. Look for values that are far too large or too small (a "
             "division "
             "by zero); the memory may have run out, too.";
    default:
      return "The protocol shows how far the run came.";
  }
}

std::vector<std::string> MissingDatum(const NetworkSurvey& survey, const JobFile& job) {
  const int datum = std::get<int>(ValueOf(job.parameters, "datum"));
  std::vector<std::string> missing;
  if (survey.hasControl) return missing;
  if ((datum & kTranslationBits) == 0) missing.emplace_back("translation");
  if ((datum & kRotationBits) == 0) missing.emplace_back("rotation");
  if ((datum & kScaleBit) == 0 && survey.distances == 0) missing.emplace_back("scale");
  return missing;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    text += fmt::format("{}\"{}\"", i == 0 ? "" : ", ", words[i]);
  }
  return text;
}

std::string DescribeSingular(const std::string& suspects) {
  const std::string head =
      "The normal equations are singular: the observations do not determine all unknowns.\n";
  if (!suspects.empty()) return head + suspects;
  return head +
         "- Nothing of the usual kind was found. Too many camera parameters may be estimated, or "
         "the control may be too weak (three fixed points that are not on a line are enough).\n";
}

// Rounding can carry a run over a singular system, to fail later on in another way.
bool MayBeSingular(const RunOutcome& outcome) {
  if (outcome.status == eXYZ_NoProgress) return true;
  const int code = outcome.failure ? outcome.failure->code : 0;
  return code == -12004 || code == -13001 || code == -39004 || code == -41001;
}

std::string Advice(const RunOutcome& outcome, const std::string& suspects) {
  switch (outcome.status) {
    case eXYZ_NoProgress:
      return "The iterations make no progress: neither S0 nor the changes are falling.\n"
             "Better approximate values are what usually helps: orientations within some ten "
             "degrees, points within some per cent of the distance, ck with the right sign. Then "
             "come gross errors (point numbers exchanged between images) and camera parameters "
             "that the images do not determine (shorten estimate). progress_window and "
             "progress_tolerance set how long a run may stand still.\n";
    case eXYZ_LineCoordsWithPrincipalPoint:
      return "An image with line coordinates has a projection of its own. Take the projection from "
             "the image, or leave out its line coordinates.\n";
    case eXYZ_SingularSystem:
      return DescribeSingular(suspects);
    default:
      return fmt::format("{}\n", AdviceForCode(outcome.failure ? outcome.failure->code : 0));
  }
}

}  // namespace

std::string DescribeSuspects(const NetworkSurvey& survey, const JobFile& job) {
  std::string text;
  const std::vector<std::string> missing = MissingDatum(survey, job);
  if (!missing.empty()) {
    text += fmt::format(
        "- Nothing fixes the datum: there are no fixed points or images and no measured "
        "coordinates, and datum lacks {}. Fix some points, or set datum and mark datum points.\n",
        Joined(missing));
  }
  if (survey.parts.size() > 1) {
    text += fmt::format("- The network falls into {} parts that no observation connects:\n",
                        survey.parts.size());
    constexpr std::size_t kShown = 5;
    for (std::size_t i = 0; i < survey.parts.size() && i < kShown; ++i) {
      text += fmt::format("    images {}\n", ListOfIds(survey.parts[i]));
    }
    if (survey.parts.size() > kShown) {
      text += fmt::format("    and {} more\n", survey.parts.size() - kShown);
    }
  }
  if (!survey.weakPoints.empty()) {
    text +=
        fmt::format("- Points seen by fewer than two images: {}\n", ListOfIds(survey.weakPoints));
  }
  if (!survey.weakImages.empty()) {
    text +=
        fmt::format("- Images with fewer than three points: {}\n", ListOfIds(survey.weakImages));
  }
  if (!survey.unusedCameras.empty()) {
    text += fmt::format("- Cameras without an image that has points: {}\n",
                        ListOfIds(survey.unusedCameras));
  }
  if (!survey.weakLines.empty()) {
    text += fmt::format(
        "- Lines without line image coordinates in two images or two points on them: {}\n",
        ListOfIds(survey.weakLines));
  }
  if (!survey.weakPlanes.empty()) {
    text += fmt::format("- Planes with fewer than three points on them: {}\n",
                        ListOfIds(survey.weakPlanes));
  }
  if (!text.empty() && survey.verdict != 0) {
    text += fmt::format("- The check of the datum: {}.\n", DatumVerdict(survey.verdict));
  }
  return text;
}

std::string DescribeFailure(const RunOutcome& outcome,
                            const NetworkSurvey& survey,
                            const JobFile& job) {
  if (outcome.status == eXYZ_Ok) {
    return "the run failed: S0 is not a number, so no result is one\n"
           "Look for values that are far too large, in the approximate values first.\n";
  }
  std::string text =
      fmt::format("the run failed: {} (status {})", StatusName(outcome.status), outcome.status);
  if (outcome.failure) {
    text += fmt::format(", error {}", outcome.failure->code);
    if (!outcome.failure->text.empty()) text += fmt::format(" - {}", outcome.failure->text);
  }
  text += '\n';
  const std::string suspects = DescribeSuspects(survey, job);
  text += Advice(outcome, suspects);
  if (MayBeSingular(outcome) && !suspects.empty()) {
    text +=
        "The network does not determine all unknowns, which may well be the cause:\n" + suspects;
  }
  return text;
}

std::string DescribeLostGroups(const GroupIds& lost, const JobFile& job) {
  if (CountOf(lost) == 0) return {};
  std::string text = fmt::format("the run left out {}\n", ListOfGroups(lost));
  if (std::get<int>(ValueOf(job.parameters, "solvability_check")) != 0) {
    text +=
        "The solvability check leaves out one group that is not determined, builds the system "
        "anew and looks again: with many such groups a run takes long. A group takes its "
        "observations along, so that others may follow.\n";
  }
  if (std::get<int>(ValueOf(job.parameters, "blunder_test")) != 0) {
    text +=
        "Observations that the outlier test rejects do not count: without them a group may be "
        "undetermined.\n";
  }
  const int minRays = std::get<int>(ValueOf(job.parameters, "min_rays"));
  if (minRays > 0 && !lost[kPoints].empty()) {
    text += fmt::format(
        "Points with fewer than min_rays = {} rays are left out too, unless they have "
        "ray_rule_exempt = 1.\n",
        minRays);
  }
  return text;
}

}  // namespace cardo
