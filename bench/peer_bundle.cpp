// The peer: adjusts a job folder with Ceres Solver, a general-purpose library for nonlinear least
// squares, and prints the figures as a line of JSON:
//
//   cardo_peer_bundle JOB [--solver dense_schur|sparse_schur|iterative_schur] [--seconds LIMIT]
//                         [--accuracy]
//
// It has what such a library is given by who knows it: derivatives in closed form, rotations once
// per image and evaluation, points eliminated first, steps of (nearly) Gauss and Newton, one
// thread. It ends with the solution or, with --accuracy, with the standard deviations of all
// unknowns and the redundancy numbers of all observations; there are no tests and no protocol.

#include "camera_model.h"
#include "flat_network.h"
#include "peak_memory.h"
#include "peer_accuracy.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ceres/ceres.h>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <exception>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

using namespace cardo::bench;

// The values at which the residuals are being evaluated, as far as many of them share them.
class Evaluation final : public ceres::EvaluationCallback {
 public:
  explicit Evaluation(const FlatNetwork& network)
      : fNetwork(network), fCamera(network.camera), fRotations(network.images.size()) {
    for (const CameraParameter parameter : network.estimated)
      fEstimates.push_back(network.camera.value[parameter]);
  }

  void PrepareForEvaluation(bool /*derivatives*/, bool isNewPoint) override {
    if (!isNewPoint) return;
    for (std::size_t i = 0; i < fEstimates.size(); ++i)
      fCamera.value[fNetwork.estimated[i]] = fEstimates[i];
    for (std::size_t i = 0; i < fRotations.size(); ++i) {
      const auto& pose = fNetwork.images[i].pose;
      fRotations[i] = RotationOf(pose[3], pose[4], pose[5]);
    }
  }

  [[nodiscard]] const Camera& CurrentCamera() const { return fCamera; }
  [[nodiscard]] const Rotation& CurrentRotation(std::size_t image) const {
    return fRotations[image];
  }
  // The estimated parameters of the camera as the library moves them.
  [[nodiscard]] std::vector<double>& Estimates() { return fEstimates; }

 private:
  const FlatNetwork& fNetwork;
  Camera fCamera;
  std::vector<Rotation> fRotations;
  std::vector<double> fEstimates;
};

// Two residuals, computed less measured over sigma, of a point, a pose and the camera.
class RayCost final : public ceres::CostFunction {
 public:
  RayCost(const Evaluation& evaluation,
          const FlatNetwork::Ray& ray,
          const std::vector<CameraParameter>& estimated)
      : fEvaluation(evaluation), fRay(ray), fEstimated(estimated) {
    set_num_residuals(2);
    *mutable_parameter_block_sizes() = {3, 6};
    if (!estimated.empty())
      mutable_parameter_block_sizes()->push_back(static_cast<std::int32_t>(estimated.size()));
  }

  bool Evaluate(double const* const* blocks, double* residuals, double** jacobians) const override {
    ImageDerivatives d;
    const ImagePoint image = Project(fEvaluation.CurrentCamera(),
                                     fEvaluation.CurrentRotation(fRay.image),
                                     blocks[1],
                                     blocks[0],
                                     jacobians == nullptr ? nullptr : &d);
    const double weights[2] = {1.0 / fRay.sx, 1.0 / fRay.sy};
    residuals[0] = weights[0] * (image.x - fRay.x);
    residuals[1] = weights[1] * (image.y - fRay.y);
    if (jacobians == nullptr) return true;
    const std::size_t parameters = fEstimated.size();
    for (std::size_t i = 0; i < 2; ++i) {
      for (std::size_t j = 0; j < 3; ++j) {
        const double byPoint = weights[i] * d.byPoint[3 * i + j];
        if (jacobians[0] != nullptr) jacobians[0][3 * i + j] = byPoint;
        if (jacobians[1] == nullptr) continue;
        jacobians[1][6 * i + j] = -byPoint;
        jacobians[1][6 * i + 3 + j] = weights[i] * d.byAngles[3 * i + j];
      }
      if (parameters == 0 || jacobians[2] == nullptr) continue;
      for (std::size_t j = 0; j < parameters; ++j)
        jacobians[2][parameters * i + j] = weights[i] * d.byCamera[kParameters * i + fEstimated[j]];
    }
    return true;
  }

 private:
  const Evaluation& fEvaluation;
  FlatNetwork::Ray fRay;
  const std::vector<CameraParameter>& fEstimated;
};

double SquaredDistance(const std::array<double, 6>& a, const std::array<double, 6>& b) {
  double sum = 0.0;
  for (std::size_t k = 0; k < 3; ++k) sum += (a[k] - b[k]) * (a[k] - b[k]);
  return sum;
}

// A free network is held at the most central image and at one coordinate of the image farthest
// from it; residuals do not depend on where. Tells of each parameter of the images whether it is
// held.
std::vector<bool> HoldDatum(FlatNetwork& network, ceres::Problem& problem) {
  std::vector<bool> held(6 * network.images.size());
  if (!network.IsFree()) return held;
  std::array<double, 6> middle{};
  for (const auto& image : network.images)
    for (std::size_t k = 0; k < 3; ++k)
      middle[k] += image.pose[k] / static_cast<double>(network.images.size());
  const auto nearer = [](const std::array<double, 6>& place) {
    return [&place](const FlatNetwork::Image& a, const FlatNetwork::Image& b) {
      return SquaredDistance(a.pose, place) < SquaredDistance(b.pose, place);
    };
  };
  const auto centre =
      std::min_element(network.images.begin(), network.images.end(), nearer(middle));
  const auto farthest =
      std::max_element(network.images.begin(), network.images.end(), nearer(centre->pose));
  int coordinate = 0;
  double longest = 0.0;
  for (int k = 0; k < 3; ++k) {
    const auto place = static_cast<std::size_t>(k);
    const double length = std::fabs(farthest->pose[place] - centre->pose[place]);
    if (length > longest) coordinate = k;
    longest = std::max(longest, length);
  }
  problem.SetParameterBlockConstant(centre->pose.data());
  problem.SetManifold(farthest->pose.data(), new ceres::SubsetManifold(6, {coordinate}));
  std::fill_n(held.begin() + 6 * (centre - network.images.begin()), 6, true);
  held[6 * static_cast<std::size_t>(farthest - network.images.begin()) +
       static_cast<std::size_t>(coordinate)] = true;
  return held;
}

struct PeerOptions {
  std::string folder;
  std::string solver = "sparse_schur";
  double seconds = std::numeric_limits<double>::infinity();
  bool accuracy = false;
};

ceres::Solver::Options SolverOptions(const PeerOptions& options) {
  ceres::Solver::Options solver;
  std::string name = options.solver;
  std::transform(name.begin(), name.end(), name.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  if (!ceres::StringToLinearSolverType(name, &solver.linear_solver_type))
    throw std::runtime_error("no such solver: " + options.solver);
  solver.dense_linear_algebra_library_type = ceres::LAPACK;
  solver.preconditioner_type = ceres::SCHUR_JACOBI;
  solver.max_linear_solver_iterations = 1000;
  solver.num_threads = 1;
  // A region of trust so wide that its damping is lost in rounding; it ends when the sum of
  // squares has settled to seven digits.
  solver.initial_trust_region_radius = 1e12;
  solver.max_trust_region_radius = 1e32;
  solver.function_tolerance = 1e-7;
  solver.gradient_tolerance = std::numeric_limits<double>::min();
  solver.parameter_tolerance = std::numeric_limits<double>::min();
  solver.logging_type = ceres::SILENT;
  if (std::isfinite(options.seconds)) solver.max_solver_time_in_seconds = options.seconds;
  return solver;
}

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

nlohmann::json Adjust(const PeerOptions& options) {
  FlatNetwork network = ReadFlatNetwork(options.folder);
  // Coordinates about their centre: the library works without a shift of its own.
  Vec3 centre{};
  for (const auto& point : network.points)
    for (std::size_t k = 0; k < 3; ++k)
      centre[k] += point.x[k] / static_cast<double>(network.points.size());
  for (auto& point : network.points)
    for (std::size_t k = 0; k < 3; ++k) point.x[k] -= centre[k];
  for (auto& image : network.images)
    for (std::size_t k = 0; k < 3; ++k) image.pose[k] -= centre[k];

  const double start = Seconds();
  Evaluation evaluation(network);
  ceres::Problem::Options settings;
  settings.disable_all_safety_checks = true;
  settings.evaluation_callback = &evaluation;
  ceres::Problem problem(settings);
  double* const camera = evaluation.Estimates().data();
  ceres::Solver::Options solver = SolverOptions(options);
  auto order = std::make_shared<ceres::ParameterBlockOrdering>();
  for (auto& point : network.points) {
    problem.AddParameterBlock(point.x.data(), 3);
    order->AddElementToGroup(point.x.data(), 0);
  }
  for (auto& image : network.images) {
    problem.AddParameterBlock(image.pose.data(), 6);
    order->AddElementToGroup(image.pose.data(), 1);
  }
  std::vector<double*> blocks(2);
  if (!network.estimated.empty()) {
    problem.AddParameterBlock(camera, static_cast<int>(network.estimated.size()));
    order->AddElementToGroup(camera, 1);
    blocks.push_back(camera);
  }
  for (const FlatNetwork::Ray& ray : network.rays) {
    blocks[0] = network.points[ray.point].x.data();
    blocks[1] = network.images[ray.image].pose.data();
    problem.AddResidualBlock(new RayCost(evaluation, ray, network.estimated), nullptr, blocks);
  }
  for (auto& point : network.points)
    if (point.isFixed) problem.SetParameterBlockConstant(point.x.data());
  const std::vector<bool> held = HoldDatum(network, problem);
  solver.linear_solver_ordering = order;

  const double built = Seconds();
  ceres::Solver::Summary summary;
  ceres::Solve(solver, &problem, &summary);
  const double solved = Seconds();
  const int solutions = std::max(summary.num_linear_solves, 1);
  const double s0 = std::sqrt(2.0 * summary.final_cost / static_cast<double>(network.Redundancy()));
  nlohmann::json figures = {{"solver", options.solver},
                            {"converged", summary.termination_type == ceres::CONVERGENCE},
                            {"iterations", summary.num_linear_solves},
                            {"preparation", built - start + summary.preprocessor_time_in_seconds},
                            {"iteration", summary.minimizer_time_in_seconds / solutions},
                            {"run", solved - start},
                            {"unknowns", network.Unknowns()},
                            {"redundancy", network.Redundancy()},
                            {"s0_ratio", s0}};
  if (options.accuracy) {
    const PeerAccuracy accuracy = ComputeAccuracy(network, problem, camera, held, s0);
    const double computed = Seconds();
    figures["accuracy"] = computed - solved;
    figures["run_with_accuracy"] = computed - start;
    figures["redundancy_sum"] =
        std::accumulate(accuracy.redundancy.begin(), accuracy.redundancy.end(), 0.0);
    figures["camera_sigmas"] = accuracy.camera;
  }
  figures["peak_mib"] = PeakMebibytes();
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Adjusts a job folder with Ceres Solver.");
  PeerOptions options;
  app.add_option("job", options.folder, "job folder")->required();
  app.add_option("--solver", options.solver, "dense_schur, sparse_schur or iterative_schur");
  app.add_option("--seconds", options.seconds, "gives up after so long");
  app.add_flag(
      "--accuracy", options.accuracy, "computes standard deviations and redundancy numbers too");
  CLI11_PARSE(app, argc, argv);
  google::InitGoogleLogging(argv[0]);
  try {
    fmt::print("{}\n", Adjust(options).dump());
  } catch (const std::exception& failure) {
    fmt::print(stderr, "cardo_peer_bundle: {}\n", failure.what());
    return 1;
  }
  return 0;
}
