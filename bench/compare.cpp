// Prints one table of whole runs, the library beside a peer, for real and for drawn networks:
//
//   cardo_compare [--network NAME]... [--runs N | --seconds PER_NETWORK] [--work DIR]
//
// Every run is a process of its own. The library, without and with its protocol, and the peer,
// without and with accuracy, take turns, so that what the machine does besides falls on all;
// figures are medians. All end with the same S0 and redundancy, or the comparison fails.

#include "drawn_network.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using cardo::bench::Layout;
using cardo::bench::NetworkPlan;
using nlohmann::json;

struct BenchNetwork {
  std::string_view name;
  std::optional<NetworkPlan> plan;  // none: an example of that name
};

constexpr std::array<BenchNetwork, 6> kNetworks = {{
    {"camera-calibration", {}},
    {"facade", {}},
    {"dome-10", NetworkPlan{Layout::kDome, 10, 100, 6, 0, 1}},
    {"dome-100", NetworkPlan{Layout::kDome, 100, 5000, 20, 0, 1}},
    {"grid-500", NetworkPlan{Layout::kGrid, 500, 50000, 8, 24, 1}},
    {"grid-2000", NetworkPlan{Layout::kGrid, 2000, 200000, 6, 9, 1}},
}};

// The reduced system of so many images is not solved as a full matrix: it would take gigabytes.
constexpr int kMostImagesOfDense = 1000;
// Both programs end a little before the minimum; S0 feels the square of what is missing.
constexpr double kSameS0 = 1e-6;
// Redundancy numbers add up to the redundancy, relatively, but for rounding.
constexpr double kSameSum = 1e-6;

struct Options {
  std::vector<std::string> networks = {
      "camera-calibration", "facade", "dome-100", "grid-500", "grid-2000"};
  int runs = 0;  // 0: as many as the seconds hold, at least 3
  double seconds = 20.0;
  std::string work = "networks";
  std::string note;
};

// Runs a program and reads the line of JSON that it prints. Throws std::runtime_error if the
// program fails.
json RunProgram(const std::vector<std::string>& command) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  close(ends[1]);
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = read(ends[0], buffer.data(), buffer.size())) > 0;)
    text.append(buffer.data(), static_cast<std::size_t>(got));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) throw std::runtime_error(fmt::format("{} failed", fmt::join(command, " ")));
  return json::parse(text);
}

// A drawn network is kept: its folder comes to be when it is complete.
fs::path FolderOf(const BenchNetwork& network, const fs::path& work) {
  if (!network.plan) return fs::path(CARDO_EXAMPLES_DIR) / network.name;
  fs::path folder = work / network.name;
  if (fs::exists(folder)) return folder;
  fmt::print(stderr, "drawing {}\n", network.name);
  const fs::path unfinished = folder.string() + ".unfinished";
  cardo::bench::DrawNetwork(*network.plan, unfinished);
  fs::rename(unfinished, folder);
  return folder;
}

enum class Extent { kPlain, kMore };

// The same problem for both: no outlier test, the library's own limit of convergence. More is the
// protocol.
json RunLibrary(const fs::path& folder, Extent extent) {
  std::vector<std::string> command = {
      CARDO_WHOLE_RUN, folder.string(), "--set", "convergence_limit=0.00032"};
  if (extent == Extent::kMore) command.emplace_back("--protocol");
  return RunProgram(command);
}

#ifdef CARDO_PEER_BUNDLE
constexpr bool kHasPeer = true;
// More is the accuracy.
json RunPeer(const fs::path& folder,
             const std::string& solver,
             Extent extent,
             double seconds = std::numeric_limits<double>::infinity()) {
  std::vector<std::string> command = {CARDO_PEER_BUNDLE, folder.string(), "--solver", solver};
  if (extent == Extent::kMore) command.emplace_back("--accuracy");
  if (std::isfinite(seconds)) {
    command.emplace_back("--seconds");
    command.push_back(fmt::format("{}", seconds));
  }
  return RunProgram(command);
}
#else
constexpr bool kHasPeer = false;
json RunPeer(const fs::path&, const std::string&, Extent, double = 0.0) { return {}; }
#endif

// The peer's fastest way for the network, by the best of a few runs. Whoever takes twice as long as
// the best so far gives up.
std::string FastestSolver(const fs::path& folder, int images) {
  constexpr int kTrials = 5;
  constexpr double kTrialSeconds = 0.5;  // enough trials
  std::string fastest;
  double best = std::numeric_limits<double>::infinity();
  for (const char* solver : {"sparse_schur", "dense_schur", "iterative_schur"}) {
    if (std::string_view(solver) == "dense_schur" && images > kMostImagesOfDense) continue;
    double spent = 0.0;
    for (int trial = 0; trial < kTrials && spent < kTrialSeconds; ++trial) {
      const json figures = RunPeer(folder, solver, Extent::kPlain, 2.0 * best);
      const double run = figures.at("run").get<double>();
      spent += run;
      if (!figures.at("converged").get<bool>()) break;
      if (run >= best) continue;
      best = run;
      fastest = solver;
    }
  }
  if (fastest.empty()) throw std::runtime_error(folder.string() + ": the peer does not converge");
  return fastest;
}

// Figures of the alternating runs of a network.
struct Comparison {
  std::string name, solver;
  std::vector<json> library, libraryWithProtocol, peer, peerWithAccuracy;

  static double Median(const std::vector<json>& runs, const char* figure) {
    std::vector<double> values;
    for (const json& run : runs) values.push_back(run.at(figure).get<double>());
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2.0;
  }
  [[nodiscard]] double Library(const char* figure) const { return Median(library, figure); }
  [[nodiscard]] double LibraryWithProtocol(const char* figure) const {
    return Median(libraryWithProtocol, figure);
  }
  // The protocol tells the assembly to a millisecond; the mean of many runs is finer.
  [[nodiscard]] double Assembly() const {
    double sum = 0.0;
    for (const json& run : library) sum += run.at("assembly").get<double>();
    return sum / static_cast<double>(library.size());
  }
  [[nodiscard]] double Peer(const char* figure) const { return Median(peer, figure); }
  [[nodiscard]] double PeerWithAccuracy(const char* figure) const {
    return Median(peerWithAccuracy, figure);
  }
};

void CheckRedundancySum(const std::string& who, const json& run) {
  const double redundancy = run.at("redundancy").get<double>();
  const double sum = run.at("redundancy_sum").get<double>();
  if (!(std::fabs(sum - redundancy) <= kSameSum * redundancy))
    throw std::runtime_error(
        fmt::format("{}: redundancy numbers add up to {}, not {}", who, sum, redundancy));
}

void CheckSameResults(const Comparison& comparison) {
  const double ours = comparison.Library("s0_ratio");
  const double theirs = comparison.Peer("s0_ratio");
  if (!(std::fabs(ours - theirs) <= kSameS0 * ours))
    throw std::runtime_error(fmt::format(
        "{}: S0 over its a-priori value is {} and the peer's {}", comparison.name, ours, theirs));
  if (comparison.Library("redundancy") != comparison.Peer("redundancy"))
    throw std::runtime_error(comparison.name + ": the peer has another redundancy");
  CheckRedundancySum(comparison.name + ", peer", comparison.peerWithAccuracy.front());
}

Comparison Compare(const BenchNetwork& network, const Options& options) {
  const fs::path folder = FolderOf(network, options.work);
  fmt::print(stderr, "running {}\n", network.name);
  Comparison comparison{std::string(network.name), {}, {}, {}, {}, {}};
  constexpr std::size_t kFewest = 3, kMost = 21;
  double spent = 0.0;
  const auto spend = [&spent](json run, const char* figure) {
    spent += run.at(figure).get<double>();
    return run;
  };
  const auto isEnough = [&] {
    const std::size_t runs = comparison.library.size();
    if (options.runs > 0) return runs >= static_cast<std::size_t>(options.runs);
    return runs >= kMost || (runs >= kFewest && spent >= options.seconds);
  };
  while (!isEnough()) {
    comparison.library.push_back(spend(RunLibrary(folder, Extent::kPlain), "run"));
    comparison.libraryWithProtocol.push_back(spend(RunLibrary(folder, Extent::kMore), "run"));
    if (!kHasPeer) continue;
    std::string& solver = comparison.solver;
    if (solver.empty())
      solver = FastestSolver(folder, comparison.library.back().at("images").get<int>());
    comparison.peer.push_back(spend(RunPeer(folder, solver, Extent::kPlain), "run"));
    comparison.peerWithAccuracy.push_back(
        spend(RunPeer(folder, solver, Extent::kMore), "run_with_accuracy"));
  }
  CheckRedundancySum(comparison.name, comparison.library.front());
  if (kHasPeer) CheckSameResults(comparison);
  return comparison;
}

// Three digits or all before the point.
std::string Figure(double value) {
  return fmt::format("{:.{}f}", value, value < 10.0 ? 2 : value < 100.0 ? 1 : 0);
}

class TablePrinter {
 public:
  explicit TablePrinter(const std::vector<Comparison>& comparisons) : fComparisons(comparisons) {}

  template <typename Cell>
  void Row(const char* label, const Cell& cell) const {
    fmt::print("{:<32}", label);
    for (const Comparison& comparison : fComparisons) fmt::print("{:>20}", cell(comparison));
    fmt::print("\n");
  }

  void Heading(const std::string& text) const { fmt::print("\n{}\n", text); }

  void Count(const char* label, const char* figure) const {
    Row(label, [&](const Comparison& c) { return fmt::format("{:.0f}", c.Library(figure)); });
  }
  void Library(const char* label, const char* figure, double scale) const {
    Row(label, [&](const Comparison& c) { return Figure(scale * c.Library(figure)); });
  }
  void LibraryWithProtocol(const char* label, const char* figure, double scale) const {
    Row(label, [&](const Comparison& c) { return Figure(scale * c.LibraryWithProtocol(figure)); });
  }
  void Peer(const char* label, const char* figure, double scale) const {
    Row(label, [&](const Comparison& c) { return Figure(scale * c.Peer(figure)); });
  }
  void PeerWithAccuracy(const char* label, const char* figure, double scale) const {
    Row(label, [&](const Comparison& c) { return Figure(scale * c.PeerWithAccuracy(figure)); });
  }

 private:
  const std::vector<Comparison>& fComparisons;
};

void PrintTable(const std::vector<Comparison>& comparisons, const std::string& note) {
  const TablePrinter table(comparisons);
  fmt::print(
      "Whole runs, medians{}{}\nCompiler: {}\n\n", note.empty() ? "" : ", ", note, CARDO_COMPILER);
  table.Row("", [](const Comparison& c) { return c.name; });
  table.Count("images", "images");
  table.Count("points", "points");
  table.Count("image coordinates", "image_coordinates");
  table.Count("unknowns", "unknowns");
  table.Row("runs", [](const Comparison& c) { return c.library.size(); });

  table.Heading("Cardo Bundle [ms]");
  table.Count("iterations", "iterations");
  table.Library("an iteration", "iteration", 1e3);
  table.Row("  assembly", [](const Comparison& c) { return Figure(1e3 * c.Assembly()); });
  table.Row("  solution", [](const Comparison& c) {
    return Figure(1e3 * (c.Library("iteration") - c.Assembly()));
  });
  table.Library("preparation", "preparation", 1e3);
  table.Library("accuracy", "accuracy", 1e3);
  table.Library("whole run", "run", 1e3);
  table.LibraryWithProtocol("with protocol", "run", 1e3);
  table.Library("peak memory [MiB]", "peak_mib", 1.0);
  if (!kHasPeer) {
    fmt::print("\nWithout the peer: CMake found no Ceres Solver (Debian: libceres-dev).\n");
    return;
  }
  table.Heading("Peer: Ceres Solver, one thread [ms]");
  table.Row("solver", [](const Comparison& c) { return c.solver; });
  table.Row("iterations",
            [](const Comparison& c) { return fmt::format("{:.0f}", c.Peer("iterations")); });
  table.Peer("an iteration", "iteration", 1e3);
  table.Peer("preparation", "preparation", 1e3);
  table.Peer("whole run", "run", 1e3);
  table.PeerWithAccuracy("accuracy", "accuracy", 1e3);
  table.PeerWithAccuracy("whole run with accuracy", "run_with_accuracy", 1e3);
  table.Peer("peak memory [MiB]", "peak_mib", 1.0);
  table.Heading("Cardo Bundle over peer");
  table.Row("whole run",
            [](const Comparison& c) { return Figure(c.Library("run") / c.Peer("run")); });
  table.Row("whole run, both with accuracy", [](const Comparison& c) {
    return Figure(c.Library("run") / c.PeerWithAccuracy("run_with_accuracy"));
  });
  table.Row("an iteration", [](const Comparison& c) {
    return Figure(c.Library("iteration") / c.Peer("iteration"));
  });
  table.Row("peak memory",
            [](const Comparison& c) { return Figure(c.Library("peak_mib") / c.Peer("peak_mib")); });
}

int Run(const Options& options) {
  // The peer's linear algebra would take all processors.
  for (const char* name : {"OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS"}) setenv(name, "1", 1);
  std::vector<Comparison> comparisons;
  for (const std::string& name : options.networks) {
    const auto* network = std::find_if(
        kNetworks.begin(), kNetworks.end(), [&](const auto& known) { return known.name == name; });
    if (network == kNetworks.end()) throw std::runtime_error("no network " + name);
    comparisons.push_back(Compare(*network, options));
  }
  PrintTable(comparisons, options.note);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Compares whole runs of the library with those of a peer.");
  Options options;
  std::vector<std::string> names;
  for (const BenchNetwork& network : kNetworks) names.emplace_back(network.name);
  app.add_option("--network", options.networks, "one or more; all but dome-10 by default")
      ->check(CLI::IsMember(names));
  app.add_option("--runs", options.runs, "of each program")->check(CLI::PositiveNumber);
  app.add_option("--seconds", options.seconds, "run as often as that for each network");
  app.add_option("--work", options.work, "folder of the drawn networks");
  app.add_option("--note", options.note, "stands above the table");
  CLI11_PARSE(app, argc, argv);
  try {
    return Run(options);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "cardo_compare: {}\n", failure.what());
    return 1;
  }
}
