#include "summary.h"
#include "text_encoding.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fmt/format.h>
#include <iterator>

namespace cardo {
namespace {

// Every image of a small network, the worst of a large one.
constexpr std::size_t kAllImages = 60;
constexpr std::size_t kWorstImages = 20;
constexpr std::size_t kStrongestCorrelations = 5;
constexpr std::size_t kShownRejected = 20;

class SummaryWriter {
 public:
  explicit SummaryWriter(const Summary& summary) : fSummary(summary) {}

  std::string Text() {
    Title();
    Numbers();
    for (const CameraSummary& camera : fSummary.cameraList) Camera(camera);
    Images();
    Points();
    Rejected();
    Warnings();
    return fmt::to_string(fText);
  }

 private:
  template <class... Arguments>
  void Print(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(fText), format, std::forward<Arguments>(arguments)...);
  }

  // " [mm]" or nothing.
  static std::string InUnit(const std::string& unit) {
    return unit.empty() ? "" : fmt::format(" [{}]", Printable(unit));
  }

  void Title() {
    if (fSummary.title.empty()) return;
    const std::string title = Printable(fSummary.title);
    Print("{}\n{}\n\n", title, std::string(CountCharacters(title), '='));
  }

  void Numbers() {
    const Summary& s = fSummary;
    if (s.iterations == 0) {
      Print("No iteration was asked for (max_iterations = 0); nothing has been adjusted.\n\n");
    } else if (!s.converged) {
      Print(
          "NOT CONVERGED: the limit of {} iterations was reached; standard deviations and\n"
          "redundancy numbers are missing or not of the last system and the last outlier "
          "marks.\n\n",
          s.maxIterations);
    }
    Print("S0 a posteriori {:>12.6g}    a priori {:.6g}, ratio {:.3f}\n",
          s.s0,
          s.s0Apriori,
          s.s0 / s.s0Apriori);
    Print("Observations    {:>12}    Unknowns    {:>8}\n", s.observations, s.unknowns);
    Print("Constraints     {:>12}    Redundancy  {:>8}\n", s.constraints, s.redundancy);
    Print("Iterations      {:>12}    Rejected    {:>8}\n", s.iterations, s.rejected.size());
    if (s.blunderRounds > 0) {
      Print(
          "Outlier tests   {:>12}    Critical value {:>5.2f}\n", s.blunderRounds, s.criticalValue);
    }
    Print(
        "Cameras {} of {}, images {} of {}, points {} of {} active; image coordinates used {} of "
        "{}; {:.2f} s\n",
        s.activeCameras,
        s.cameras,
        s.activeImages,
        s.images,
        s.activePoints,
        s.points,
        s.imageCoordinates - s.unusedImageCoordinates,
        s.imageCoordinates,
        s.seconds);
  }

  void Camera(const CameraSummary& camera) {
    Print("\nCamera {}{}\n", camera.id, InUnit(fSummary.imageUnit));
    Print("{:>6} {:>18} {:>12}\n", "", "value", "std. dev.");
    for (const CameraParameterSummary& parameter : camera.parameters) {
      if (parameter.isEstimated) {
        Print("{:>6} {:>18.9g} {:>12.3g}\n", parameter.name, parameter.value, parameter.sigma);
      } else if (parameter.value != 0.0) {
        Print("{:>6} {:>18.9g} {:>12}\n", parameter.name, parameter.value, "fixed");
      }
    }
    if (camera.correlations.empty()) return;
    Print("  strongest correlations:");
    const std::size_t shown = std::min(kStrongestCorrelations, camera.correlations.size());
    for (std::size_t i = 0; i < shown; ++i) {
      const CorrelationSummary& correlation = camera.correlations[i];
      Print("{} {}-{} {:.3f}",
            i == 0 ? "" : ",",
            correlation.first,
            correlation.second,
            correlation.value);
    }
    Print("\n");
  }

  void Images() {
    std::vector<ImageSummary> images = fSummary.imageList;
    if (images.empty()) return;
    if (images.size() <= kAllImages) {
      Print("\nImages, residuals{}\n", InUnit(fSummary.imageUnit));
    } else {
      std::stable_sort(
          images.begin(), images.end(), [](const ImageSummary& a, const ImageSummary& b) {
            return std::hypot(a.rmsX, a.rmsY) > std::hypot(b.rmsX, b.rmsY);
          });
      images.resize(kWorstImages);
      Print("\nImages with the largest residuals{}, {} of {}\n",
            InUnit(fSummary.imageUnit),
            images.size(),
            fSummary.imageList.size());
    }
    Print("{:>10} {:>7} {:>8} {:>11} {:>11} {:>11} {:>10}\n",
          "image",
          "rays",
          "outliers",
          "rms vx",
          "rms vy",
          "largest",
          "at point");
    for (const ImageSummary& image : images) {
      Print("{:>10} {:>7} {:>8}", image.id, image.rays, image.outliers);
      if (image.rays > 0) {
        Print(" {:>11.3g} {:>11.3g} {:>11.3g} {:>10}",
              image.rmsX,
              image.rmsY,
              image.largest,
              image.largestPoint);
      }
      Print("\n");
    }
  }

  void Points() {
    const PointsSummary& points = fSummary.pointSummary;
    if (points.active == 0) return;
    Print("\nPoints{}: {} estimated, {} fixed\n",
          InUnit(fSummary.lengthUnit),
          points.estimated,
          points.fixed);
    if (points.worst.empty()) return;
    Print("{:>10} {:>7} {:>11} {:>11} {:>11}\n", "", "rays", "sx", "sy", "sz");
    Print("{:>10} {:>7} {:>11.3g} {:>11.3g} {:>11.3g}\n",
          "rms",
          "",
          points.rmsSx,
          points.rmsSy,
          points.rmsSz);
    Print("  worst points:\n");
    for (const PointSummary& point : points.worst) {
      Print("{:>10} {:>7} {:>11.3g} {:>11.3g} {:>11.3g}\n",
            point.id,
            point.rays,
            point.sx,
            point.sy,
            point.sz);
    }
  }

  void Rejected() {
    const std::vector<RejectedObservation>& rejected = fSummary.rejected;
    if (rejected.empty()) return;
    const std::size_t shown = std::min(kShownRejected, rejected.size());
    Print("\nRejected observations, {}{} of {}\n",
          shown < rejected.size() ? "those with the largest test values, " : "",
          shown,
          rejected.size());
    Print("{:>24} {:>7} {:>26} {:>11}   {}\n", "table", "row", "of", "test value", "residuals");
    for (std::size_t i = 0; i < shown; ++i) {
      const RejectedObservation& observation = rejected[i];
      std::string ids;
      for (const auto& [name, id] : observation.ids) {
        ids += fmt::format("{}{} {}", ids.empty() ? "" : ", ", name, id);
      }
      Print("{:>24} {:>7} {:>26}", observation.table, observation.row, ids);
      if (observation.isActive) {
        Print(" {:>11.2f}  ", observation.LargestTestValue());
        for (const double v : observation.residuals) Print(" {:.3g}", v);
      } else {
        Print(" {:>11}   not active", "");
      }
      Print("\n");
    }
    if (shown < rejected.size())
      Print("  and {} more, all in summary.json\n", rejected.size() - shown);
  }

  // By code, so that those of one kind stand together.
  void Warnings() {
    std::vector<RunWarning> warnings = fSummary.warnings;
    if (warnings.empty()) return;
    std::stable_sort(warnings.begin(),
                     warnings.end(),
                     [](const RunWarning& a, const RunWarning& b) { return a.code < b.code; });
    Print("\nWarnings\n");
    for (std::size_t i = 0; i < warnings.size(); ++i) {
      const RunWarning& warning = warnings[i];
      Print("  {} {}{}{}\n",
            warning.code,
            warning.text,
            warning.object.empty() ? "" : ": ",
            warning.object);
      const bool isLast = i + 1 == warnings.size() || warnings[i + 1].code != warning.code;
      const auto& cut = fSummary.cutWarnings;
      if (isLast && std::find(cut.begin(), cut.end(), warning.code) != cut.end()) {
        Print("  {} and more\n", warning.code);
      }
    }
  }

  const Summary& fSummary;
  fmt::memory_buffer fText;
};

}  // namespace

std::string SummaryText(const Summary& summary) { return SummaryWriter(summary).Text(); }

}  // namespace cardo
