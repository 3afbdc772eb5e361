// The figures of a protocol's summary, told once more from the records that the run gives back, in
// both languages.

#include "networks/library_run.h"
#include "reference/network_builder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace {

using reference::Network;
using reference::Shape;

enum Language : int { kGerman = 1, kEnglish = 2 };

// The language belongs to the whole process; every test leaves it German.
class LanguageOf {
 public:
  LanguageOf(void* job, Language language) : fJob(job) {
    XYZ_SetParam(fJob, eXYZ_ParamLanguage, language);
  }
  ~LanguageOf() { XYZ_SetParam(fJob, eXYZ_ParamLanguage, kGerman); }
  LanguageOf(const LanguageOf&) = delete;
  LanguageOf& operator=(const LanguageOf&) = delete;

 private:
  void* fJob;
};

// The words of a summary, ISO 8859-1.
struct Words {
  const char *anchor, *standardDeviation, *observations, *unknowns, *constraints, *redundancy;
  const char *loops, *blunderRounds, *fixedCameras, *estimatedCameras, *cameraRows;
  const char *fixedPoints, *estimatedPoints, *raysPerPoint, *pointRms, *pointMaximum;
  const char *distances, *distanceRms, *distanceMaximum;
  const char *images, *raysPerImage, *fewestRays, *fewestImage, *imageRows;
  const char *redundancySum, *blunderBlock;
};

constexpr Words kGermanWords = {
    "<a name=\"Zusammenfassung\">",
    "Standardabweichung: ",
    "Anzahl Beobachtungen: ",
    "Anzahl Unbekannte: ",
    "Anzahl Bedingungen: ",
    "Gesamtredundanz: ",
    "Durchlaufene Schleifen: ",
    "Durchgef\xFChrte Ausrei\xDF"
    "ererkennungen: ",
    "Anzahl der festen Kameras: ",
    "Anzahl der gesch\xE4tzten Kameras: ",
    "\nStatistik der Bildkoordinaten f\xFCr die Kameras:\n\n",
    "Anzahl der festen Objektpunkte: ",
    "Anzahl der gesch\xE4tzten Objektpunkte: ",
    "Durchschn. Strahlen pro Objektpunkt: ",
    "RMS der Standardabweichungen: ",
    "Maximale Standardabweichung: ",
    "Anzahl der verwendeten Strecken: ",
    "RMS der Verbesserungen: ",
    "Maximale Verbesserung: ",
    "Anzahl der verwendeten Bilder: ",
    "Mittlere Anzahl der Strahlen pro Bild: ",
    "Minimale Anzahl von Strahlen: ",
    "     in Bild  ",
    "\nStatistik der Bildkoordinaten f\xFCr die Bilder:\n\n",
    "\nGesamtredundanz: ",
    "Testwert f\xFCr den Ausrei\xDF"
    "ertest: ",
};

constexpr Words kEnglishWords = {
    "<a name=\"summary\">",
    "Standard deviation: ",
    "Number of observations: ",
    "Number of unknowns: ",
    "Number of constraints: ",
    "Redundancy at all: ",
    "Loops: ",
    "Blunder detections executed: ",
    "Number of fixed cameras: ",
    "Number of estimated cameras: ",
    "\nStatistic of image coordinates per camera:\n\n",
    "Number of fixed object points: ",
    "Number of estimated object points: ",
    "Mean number of rays per object points: ",
    "Mean standard deviation: ",
    "Maximum standard deviation: ",
    "Number of used distances: ",
    "RMS of residuals: ",
    "Maximum residual: ",
    "Number of used images: ",
    "Mean number of rays per image: ",
    "Minimum number of rays: ",
    "   in image  ",
    "\nImage coordinate statistics per image:\n\n",
    "\nRedundancy at all: ",
    "Test value for blunder test   : ",
};

// A run with its protocol.
struct AdjustedRun {
  Network adjusted;
  std::string protocol;
  int iterations = 0;
  double s0 = 0.0;
  int observations = 0, unknowns = 0, constraints = 0, redundancy = 0;
  double redundancySum = 0.0;
};

void AppendText(void* /*job*/, char* text, void* userData) {
  static_cast<std::string*>(userData)->append(text);
}

int CountIteration(void* /*job*/, sXYZ_CBProgressInfo* info, void* userData) {
  *static_cast<int*>(userData) = info->Iteration;
  return 0;
}

template <typename Record>
void ReadBack(void* job, std::vector<Record>& records, int (*get)(void*, int, Record*)) {
  for (std::size_t i = 0; i < records.size(); ++i)
    EXPECT_EQ(get(job, static_cast<int>(i), &records[i]), 0);
}

AdjustedRun Adjust(const Network& network, Language language, int blunderTest = 2) {
  const Job job = MakeJob(network, 1e-9);
  void* handle = job.get();
  const LanguageOf spoken(handle, language);
  XYZ_SetParam(handle, eXYZ_ParamBlunderTest, blunderTest);
  AdjustedRun run;
  XYZ_SetProtocolCallback(handle, AppendText, &run.protocol);
  XYZ_SetProgressCallback(handle, CountIteration, &run.iterations);
  EXPECT_EQ(XYZ_CalcBundle(handle), 0);
  XYZ_GetResult(handle, eXYZ_ResultS0, &run.s0);
  XYZ_GetResult(handle, eXYZ_ResultObservations, &run.observations);
  XYZ_GetResult(handle, eXYZ_ResultUnknowns, &run.unknowns);
  XYZ_GetResult(handle, eXYZ_ResultConstraints, &run.constraints);
  XYZ_GetResult(handle, eXYZ_ResultRedundancy, &run.redundancy);
  XYZ_GetResult(handle, eXYZ_ResultRedundancyValue, &run.redundancySum);
  run.adjusted = network;
  ReadBack(handle, run.adjusted.cameras, XYZ_GetInteriorOrientAt);
  ReadBack(handle, run.adjusted.images, XYZ_GetExteriorOrientAt);
  ReadBack(handle, run.adjusted.points, XYZ_GetObjectCoordAt);
  ReadBack(handle, run.adjusted.projections, XYZ_GetProjectionAt);
  ReadBack(handle, run.adjusted.imagePoints, XYZ_GetPictureCoordsAt);
  ReadBack(handle, run.adjusted.measured, XYZ_GetMeasuredObjectCoordAt);
  ReadBack(handle, run.adjusted.distances, XYZ_GetDistanceAt);
  return run;
}

// --- What the records say ---

template <typename Group>
bool IsActive(const Group& group) {
  return (group.Flags & 0x01) != 0;
}
template <typename Group>
bool IsEstimated(const Group& group) {
  return (group.Flags & 0x11) == 0x01;
}
// Active and not rejected.
template <typename Observation>
bool IsUsed(const Observation& observation) {
  return (observation.Flags & 0x11) == 0x01;
}

struct Rms {
  double sum = 0.0;
  double largest = 0.0;
  int count = 0;

  void Add(double value) {
    sum += value * value;
    ++count;
    if (std::fabs(value) > std::fabs(largest)) largest = value;
  }
  [[nodiscard]] double Root() const { return count > 0 ? std::sqrt(sum / count) : 0.0; }
};

struct Row {
  int id = 0;
  Rms vx, vy;
};

Row RaysOf(const Network& network,
           int id,
           const std::function<bool(const sXYZ_PictureCoord&)>& belongs) {
  Row row{id, {}, {}};
  for (const auto& o : network.imagePoints) {
    if (!IsUsed(o) || !belongs(o)) continue;
    row.vx.Add(o.Vx);
    row.vy.Add(o.Vy);
  }
  return row;
}

// The camera behind an image id: that of the image, or of the base of a relative orientation.
int CameraOf(const Network& network, int image) {
  for (const auto& pair : network.pairs)
    if (pair.Id == image) return CameraOf(network, pair.BaseEorId);
  for (const auto& e : network.images)
    if (e.Id == image) return e.IorId;
  return -1;
}

std::vector<Row> CameraRows(const Network& network) {
  std::vector<Row> rows;
  for (const auto& c : network.cameras)
    rows.push_back(RaysOf(network, c.Id, [&](const sXYZ_PictureCoord& o) {
      return CameraOf(network, o.EorId) == c.Id;
    }));
  return rows;
}

std::vector<Row> ImageRows(const Network& network) {
  std::vector<Row> rows;
  const auto add = [&](int id) {
    rows.push_back(RaysOf(network, id, [id](const sXYZ_PictureCoord& o) { return o.EorId == id; }));
  };
  for (const auto& e : network.images)
    if (IsActive(e)) add(e.Id);
  for (const auto& pair : network.pairs) add(pair.Id);
  return rows;
}

// A residual of an observation that takes part: over its sigma, and its redundancy number.
struct Component {
  double normal, redundancy;
};

std::vector<Component> UsedComponents(const Network& network) {
  std::vector<Component> all;
  for (const auto& o : network.imagePoints) {
    if (!IsUsed(o)) continue;
    all.push_back({o.Vx / o.Sx, o.Rx});
    all.push_back({o.Vy / o.Sy, o.Ry});
  }
  for (const auto& o : network.measured) {
    if (!IsUsed(o)) continue;
    all.push_back({o.Vx / o.Sx, o.Rx});
    all.push_back({o.Vy / o.Sy, o.Ry});
    all.push_back({o.Vz / o.Sz, o.Rz});
  }
  for (const auto& o : network.distances)
    if (IsUsed(o)) all.push_back({o.V / o.Sigma, o.R});
  return all;
}

int Unknowns(const Network& network) {
  int count = 0;
  for (const auto& e : network.images) count += IsEstimated(e) ? 6 : 0;
  for (const auto& p : network.points) count += IsEstimated(p) ? 3 : 0;
  for (const auto& c : network.cameras)
    count += IsEstimated(c) ? std::popcount(c.ParameterMask) : 0;
  return count;
}

// --- What the protocol says ---

// The summary of a protocol, read by its words.
class Summary {
 public:
  Summary(const std::string& protocol, const Words& words) {
    const std::size_t start = protocol.find(words.anchor);
    if (start == std::string::npos) {
      ADD_FAILURE() << "no summary";
      return;
    }
    fText = protocol.substr(start);
  }

  [[nodiscard]] bool Has(const char* label) const { return fText.find(label) != std::string::npos; }
  [[nodiscard]] double Number(const char* label) const { return Numbers(label, 1)[0]; }
  // The numbers that follow a label.
  [[nodiscard]] std::vector<double> Numbers(const char* label, std::size_t count) const {
    std::vector<double> numbers(count, std::nan(""));
    const std::size_t at = fText.find(label);
    if (at == std::string::npos) {
      ADD_FAILURE() << "no label " << label;
      return numbers;
    }
    std::istringstream stream(fText.substr(at + std::string(label).size()));
    stream.imbue(std::locale::classic());
    for (double& number : numbers) EXPECT_TRUE(stream >> number) << label;
    return numbers;
  }
  // The lines of six numbers behind a title and its head.
  [[nodiscard]] std::vector<std::array<double, 6>> Rows(const char* title) const {
    std::vector<std::array<double, 6>> rows;
    const std::size_t at = fText.find(title);
    if (at == std::string::npos) {
      ADD_FAILURE() << "no title " << title;
      return rows;
    }
    std::istringstream lines(fText.substr(at + std::string(title).size()));
    std::string line;
    std::getline(lines, line);
    EXPECT_NE(line.find("|  rms vx  |  rms vy  |  max vx  |  max vy  |"), std::string::npos)
        << line;
    while (std::getline(lines, line)) {
      std::istringstream stream(line);
      stream.imbue(std::locale::classic());
      std::array<double, 6> row{};
      for (double& number : row) stream >> number;
      if (!stream) break;
      rows.push_back(row);
    }
    return rows;
  }

 private:
  std::string fText;
};

// A printed number is off by half a unit of its last decimal.
void ExpectPrinted(double printed, double value, int decimals, const std::string& what) {
  EXPECT_NEAR(printed, value, 0.5000001 * std::pow(10.0, -decimals)) << what;
}

void ExpectRows(const std::vector<std::array<double, 6>>& printed,
                const std::vector<Row>& expected,
                const std::string& what) {
  ASSERT_EQ(printed.size(), expected.size()) << what;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const std::string at = what + " " + std::to_string(expected[i].id);
    EXPECT_EQ(printed[i][0], expected[i].id) << at;
    EXPECT_EQ(printed[i][1], expected[i].vx.count) << at;
    ExpectPrinted(printed[i][2], expected[i].vx.Root(), 6, at + " rms vx");
    ExpectPrinted(printed[i][3], expected[i].vy.Root(), 6, at + " rms vy");
    ExpectPrinted(printed[i][4], expected[i].vx.largest, 6, at + " max vx");
    ExpectPrinted(printed[i][5], expected[i].vy.largest, 6, at + " max vy");
  }
}

void ExpectOverall(const Summary& summary,
                   const Words& words,
                   const AdjustedRun& run,
                   double s0Apriori) {
  const std::vector<Component> components = UsedComponents(run.adjusted);
  double squares = 0.0;
  double redundancySum = 0.0;
  for (const Component& c : components) {
    squares += c.normal * c.normal * s0Apriori * s0Apriori;
    redundancySum += c.redundancy;
  }
  const auto n = static_cast<int>(components.size());
  const int u = Unknowns(run.adjusted);
  const int r = n - u + run.constraints;
  EXPECT_EQ(run.observations, n);
  EXPECT_EQ(run.unknowns, u);
  EXPECT_EQ(run.redundancy, r);
  // The residuals read back follow the last increments, which are nearly nothing.
  EXPECT_NEAR(run.s0, std::sqrt(squares / r), 1e-9 * run.s0);
  EXPECT_NEAR(run.redundancySum, redundancySum, 1e-9);
  // As many as the redundancy, within what lies between the last two iterations.
  EXPECT_NEAR(redundancySum, r, 1e-6 * r);

  ExpectPrinted(summary.Number(words.standardDeviation), std::sqrt(squares / r), 6, "S0");
  EXPECT_EQ(summary.Number(words.observations), n);
  EXPECT_EQ(summary.Number(words.unknowns), u);
  EXPECT_EQ(summary.Number(words.constraints), run.constraints);
  EXPECT_EQ(summary.Number(words.redundancy), r);
  EXPECT_EQ(summary.Number(words.loops), run.iterations);
  ExpectPrinted(summary.Number(words.redundancySum), redundancySum, 4, "sum of the redundancy");
}

// Every outlier test that was run has told itself; the summary counts one less.
void ExpectRounds(const Summary& summary, const Words& words, const AdjustedRun& run) {
  int blocks = 0;
  for (std::size_t at = run.protocol.find(words.blunderBlock); at != std::string::npos;
       at = run.protocol.find(words.blunderBlock, at + 1))
    ++blocks;
  EXPECT_GE(blocks, 1);
  EXPECT_EQ(summary.Number(words.blunderRounds), blocks - 1);
}

void ExpectCameras(const Summary& summary, const Words& words, const Network& network) {
  int fixed = 0;
  int estimated = 0;
  for (const auto& c : network.cameras)
    if (IsActive(c)) ++(IsEstimated(c) ? estimated : fixed);
  EXPECT_EQ(summary.Number(words.fixedCameras), fixed);
  EXPECT_EQ(summary.Number(words.estimatedCameras), estimated);
  ExpectRows(summary.Rows(words.cameraRows), CameraRows(network), "camera");
}

void ExpectPoints(const Summary& summary, const Words& words, const Network& network) {
  int fixed = 0;
  int rays = 0;
  Rms sigmas[3];
  for (const auto& p : network.points) {
    if (!IsActive(p)) continue;
    const auto own = std::count_if(
        network.imagePoints.begin(), network.imagePoints.end(), [&](const sXYZ_PictureCoord& o) {
          return IsUsed(o) && o.PointId == p.Id;
        });
    EXPECT_EQ(p.RayCount, own) << "point " << p.Id;
    rays += static_cast<int>(own);
    if (!IsEstimated(p)) {
      ++fixed;
      continue;
    }
    sigmas[0].Add(p.Sx);
    sigmas[1].Add(p.Sy);
    sigmas[2].Add(p.Sz);
  }
  const int estimated = sigmas[0].count;
  EXPECT_EQ(summary.Number(words.fixedPoints), fixed);
  EXPECT_EQ(summary.Number(words.estimatedPoints), estimated);
  ExpectPrinted(summary.Number(words.raysPerPoint),
                static_cast<double>(rays) / (fixed + estimated),
                2,
                "rays per point");
  EXPECT_EQ(summary.Has(words.pointRms), estimated > 0);
  EXPECT_EQ(summary.Has(words.pointMaximum), estimated > 0);
  if (estimated == 0) return;
  const std::vector<double> rms = summary.Numbers(words.pointRms, 3);
  const std::vector<double> largest = summary.Numbers(words.pointMaximum, 3);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    ExpectPrinted(rms[axis], sigmas[axis].Root(), 6, "rms of axis " + std::to_string(axis));
    ExpectPrinted(
        largest[axis], sigmas[axis].largest, 6, "largest of axis " + std::to_string(axis));
  }
}

void ExpectDistances(const Summary& summary, const Words& words, const Network& network) {
  Rms v;
  for (const auto& o : network.distances)
    if (IsUsed(o)) v.Add(o.V);
  ASSERT_EQ(summary.Has(words.distances), v.count > 0);
  if (v.count == 0) return;
  EXPECT_EQ(summary.Number(words.distances), v.count);
  ExpectPrinted(summary.Number(words.distanceRms), v.Root(), 4, "rms of distances");
  ExpectPrinted(summary.Number(words.distanceMaximum), v.largest, 4, "largest of distances");
}

void ExpectImages(const Summary& summary, const Words& words, const Network& network) {
  const std::vector<Row> rows = ImageRows(network);
  int rays = 0;
  for (const Row& row : rows) rays += row.vx.count;
  const auto fewest = std::min_element(
      rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.vx.count < b.vx.count; });
  EXPECT_EQ(summary.Number(words.images), rows.size());
  ExpectPrinted(summary.Number(words.raysPerImage),
                static_cast<double>(rays) / static_cast<double>(rows.size()),
                1,
                "rays per image");
  EXPECT_EQ(summary.Number(words.fewestRays), fewest->vx.count);
  EXPECT_EQ(summary.Number(words.fewestImage), fewest->id);
  ExpectRows(summary.Rows(words.imageRows), rows, "image");
  // The records of the images tell the same figures.
  for (const auto& e : network.images) {
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.id == e.Id; });
    if (row == rows.end()) continue;
    EXPECT_NEAR(e.RmsVx, row->vx.Root(), 1e-12) << "image " << e.Id;
    EXPECT_NEAR(e.RmsVy, row->vy.Root(), 1e-12) << "image " << e.Id;
  }
}

void ExpectSummary(const Network& network, Language language, int blunderTest = 2) {
  const Words& words = language == kGerman ? kGermanWords : kEnglishWords;
  const AdjustedRun run = Adjust(network, language, blunderTest);
  const Summary summary(run.protocol, words);
  ExpectOverall(summary, words, run, network.s0Apriori);
  ExpectRounds(summary, words, run);
  ExpectCameras(summary, words, run.adjusted);
  ExpectPoints(summary, words, run.adjusted);
  ExpectDistances(summary, words, run.adjusted);
  ExpectImages(summary, words, run.adjusted);
}

// --- Networks ---

// Two cameras, one of them fixed, and relative orientations; noise and S0 are so large that the
// printed figures have their six digits.
Shape MixedShape(std::uint64_t seed) {
  Shape shape;
  shape.seed = seed;
  shape.cameras = 2;
  shape.images = 4;
  shape.points = 16;
  shape.relative = true;
  shape.bodyPoints = true;
  shape.measuredInImages = true;
  shape.distances = 5;
  shape.noise = 0.01;
  return shape;
}

Network Mixed(std::uint64_t seed) {
  Network network = Build(MixedShape(seed));
  network.s0Apriori = 0.5;
  network.cameras[1].Flags = 0x11;
  // No more exact than the images, so that they have redundancy.
  for (auto& o : network.distances) o.Sigma = 0.01;
  for (auto& o : network.measured) o.Sx = o.Sy = o.Sz = 0.01;
  return network;
}

// The same with rejected, protected and inactive elements of every kind.
Network Spoilt(std::uint64_t seed) {
  Network network = Mixed(seed);
  // An inactive camera, an inactive image and an inactive point, with their observations.
  sXYZ_InteriorOrient camera = network.cameras[0];
  camera.Id = 120;
  camera.Flags = 0x00;
  network.cameras.push_back(camera);
  sXYZ_ExteriorOrient2 image = network.images[0];
  image.Id = 30;
  image.Flags = 0x00;
  network.images.push_back(image);
  sXYZ_ExteriorOrient2 without = network.images[0];
  without.Id = 31;
  without.IorId = 120;
  without.Flags = 0x11;
  network.images.push_back(without);
  const std::size_t measured = network.imagePoints.size();
  for (std::size_t i = 0; i < 8; ++i) {
    sXYZ_PictureCoord o = network.imagePoints[i];
    o.EorId = i % 2 == 0 ? 30 : 31;
    network.imagePoints.push_back(o);
  }
  network.points[9].Flags = 0x00;
  // Gross errors, a rejection by the caller, a protected observation and inactive ones.
  network.imagePoints[5].X += 0.6;
  network.imagePoints[measured / 2].Y -= 0.9;
  network.imagePoints[measured - 3].X += 0.4;
  network.imagePoints[7].Flags = 0x11;
  network.imagePoints[7].Y += 0.5;
  network.imagePoints[12].Flags = 0x00;
  network.imagePoints[20].Flags = 0x21;
  network.imagePoints[20].X += 4.0 * network.imagePoints[20].Sx;
  network.distances[1].S += 0.3;
  network.distances[3].Flags = 0x00;
  network.measured[0].Z += 0.3;
  return network;
}

TEST(StatisticsFromRecords, MixedNetwork) {
  for (const Language language : {kGerman, kEnglish})
    for (const std::uint64_t seed : {1U, 2U, 3U}) ExpectSummary(Mixed(seed), language);
}

TEST(StatisticsFromRecords, NetworkWithRejectedAndInactiveElements) {
  for (const Language language : {kGerman, kEnglish})
    for (const std::uint64_t seed : {1U, 2U, 3U}) ExpectSummary(Spoilt(seed), language);
}

TEST(StatisticsFromRecords, SpoiltNetworkHasWhatItIsMeantToHave) {
  const AdjustedRun run = Adjust(Spoilt(1), kGerman);
  const auto rejected = [](const auto& records) {
    return std::count_if(
        records.begin(), records.end(), [](const auto& o) { return (o.Flags & 0x11) == 0x11; });
  };
  EXPECT_GE(rejected(run.adjusted.imagePoints), 4);
  EXPECT_EQ(rejected(run.adjusted.distances), 1);
  EXPECT_EQ(rejected(run.adjusted.measured), 1);
  const auto inactive = std::count_if(run.adjusted.imagePoints.begin(),
                                      run.adjusted.imagePoints.end(),
                                      [](const sXYZ_PictureCoord& o) { return !IsActive(o); });
  EXPECT_GE(inactive, 8 + 1 + 4);
}

TEST(StatisticsFromRecords, ByRedundancyAndWithoutOutlierTest) {
  for (const int blunderTest : {0, 1}) ExpectSummary(Spoilt(4), kEnglish, blunderTest);
}

TEST(StatisticsFromRecords, FreeNetworkWithoutDistancesCountsItsSevenConstraints) {
  Shape shape;
  shape.seed = 5;
  shape.freeNetwork = true;
  shape.noise = 0.01;
  Network network = Build(shape);
  // Weights of about 1: much larger ones cost the cofactors of a free network their digits, and the
  // sum of the redundancy numbers with them.
  network.s0Apriori = 0.01;
  for (const Language language : {kGerman, kEnglish}) {
    ExpectSummary(network, language);
    EXPECT_EQ(Adjust(network, language).constraints, 7);
  }
}

TEST(StatisticsFromRecords, FixedPointsHaveNoStandardDeviations) {
  Shape shape;
  shape.seed = 6;
  shape.noise = 0.01;
  Network network = Build(shape);
  for (auto& p : network.points) p.Flags = 0x11;
  network.s0Apriori = 0.5;
  for (const Language language : {kGerman, kEnglish}) ExpectSummary(network, language);
}

}  // namespace
