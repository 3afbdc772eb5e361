#include "drawn_network.h"

#include "camera_model.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cardo::bench {
namespace {

namespace fs = std::filesystem;

constexpr double kPi = std::numbers::pi;
constexpr double kNoise = 0.0005;        // mm, of image coordinates
constexpr double kHalfFormat = 18.0;     // mm
constexpr double kPositionError = 0.03;  // m, of the approximate values
constexpr double kAngleError = 0.5;      // degrees
constexpr double kStartPrincipalDistance = -20.0;
constexpr Camera kTruth{
    {-20.15, 0.062, -0.041, -2.1e-4, 3.0e-7, -4.0e-11, 1.2e-5, -0.9e-5, 0.0, 0.0}, 0.0};

// Its own distributions: those of the standard library differ from one to the next.
class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}

  double Uniform(double lower, double upper) { return lower + (upper - lower) * Unit(); }

  double Normal(double sigma) {
    const double radius = std::sqrt(-2.0 * std::log(1.0 - Unit()));
    return sigma * radius * std::cos(2.0 * kPi * Unit());
  }

  // So many of them, ascending.
  std::vector<std::uint32_t> Some(std::vector<std::uint32_t> candidates, std::uint32_t count) {
    for (std::size_t i = 0; i < count; ++i)
      std::swap(candidates[i], candidates[i + fGenerator() % (candidates.size() - i)]);
    candidates.resize(count);
    std::sort(candidates.begin(), candidates.end());
    return candidates;
  }

 private:
  double Unit() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-53; }

  std::mt19937_64 fGenerator;
};

struct Station {
  Vec3 centre;
  Vec3 angles;  // omega, phi, kappa
  Rotation rotation;
};

struct DrawnPoint {
  Vec3 x;
  std::vector<std::uint32_t> images;
};

Vec3 Cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Vec3 Unit(const Vec3& a) {
  const double length = std::hypot(a[0], a[1], a[2]);
  return {a[0] / length, a[1] / length, a[2] / length};
}

// A camera that looks along its negative z axis at the target, turned about that axis.
Station Look(const Vec3& centre, const Vec3& target, double roll) {
  const Vec3 z = Unit({centre[0] - target[0], centre[1] - target[1], centre[2] - target[2]});
  const Vec3 up = std::fabs(z[1]) < 0.9 ? Vec3{0.0, 1.0, 0.0} : Vec3{1.0, 0.0, 0.0};
  const Vec3 x = Unit(Cross(up, z));
  const Vec3 y = Cross(z, x);
  // The columns of the rotation are x and y, turned by the roll, and z.
  const double c = std::cos(roll), s = std::sin(roll);
  const double r00 = c * x[0] + s * y[0];
  const double r01 = c * y[0] - s * x[0];
  const Vec3 angles = {
      std::atan2(-z[1], z[2]), std::asin(std::clamp(z[0], -1.0, 1.0)), std::atan2(-r01, r00)};
  return {centre, angles, RotationOf(angles[0], angles[1], angles[2])};
}

// Quarter turns in sequence, as calibration wants them.
double Roll(std::uint32_t image, Draw& draw) { return (image % 4) * kPi / 2.0 + draw.Normal(0.1); }

ImagePoint See(const Station& station, const Vec3& x) {
  return Project(kTruth, station.rotation, station.centre.data(), x.data(), nullptr);
}

std::vector<Station> DrawDome(const NetworkPlan& plan, Draw& draw) {
  const double goldenAngle = kPi * (3.0 - std::sqrt(5.0));
  std::vector<Station> stations;
  for (std::uint32_t i = 0; i < plan.images; ++i) {
    const double elevation = std::asin(0.2 + 0.75 * (i + 0.5) / plan.images);
    const double azimuth = i * goldenAngle;
    const double distance = draw.Uniform(2.6, 3.4);
    const Vec3 centre = {distance * std::cos(elevation) * std::cos(azimuth),
                         distance * std::cos(elevation) * std::sin(azimuth),
                         distance * std::sin(elevation)};
    Vec3 target{};
    for (double& t : target) t = draw.Uniform(-0.1, 0.1);
    stations.push_back(Look(centre, target, Roll(i, draw)));
  }
  return stations;
}

std::vector<DrawnPoint> DrawObject(const NetworkPlan& plan, Draw& draw) {
  std::vector<std::uint32_t> all(plan.images);
  for (std::uint32_t i = 0; i < plan.images; ++i) all[i] = i;
  std::vector<DrawnPoint> points(plan.points);
  for (DrawnPoint& point : points) {
    point.x = {draw.Uniform(-1.0, 1.0), draw.Uniform(-1.0, 1.0), draw.Uniform(-0.5, 0.5)};
    point.images = draw.Some(all, plan.rays);
  }
  return points;
}

// The grid of stations, and where they look.
class Grid {
 public:
  static constexpr double kBase = 0.7;

  Grid(const NetworkPlan& plan, Draw& draw)
      : fColumns(static_cast<std::uint32_t>(std::lround(std::sqrt(plan.images * 1.25)))),
        fRows((plan.images + fColumns - 1) / fColumns) {
    for (std::uint32_t i = 0; i < plan.images; ++i) {
      const Vec3 centre = {(i % fColumns) * kBase + draw.Normal(0.05),
                           (i / fColumns) * kBase + draw.Normal(0.05),
                           draw.Uniform(2.7, 3.3)};
      // Images at the border look inwards.
      const Vec3 target = {
          std::clamp(centre[0] + draw.Uniform(-1.0, 1.0), kBase, (fColumns - 2) * kBase),
          std::clamp(centre[1] + draw.Uniform(-1.0, 1.0), kBase, (fRows - 2) * kBase),
          0.0};
      stations.push_back(Look(centre, target, Roll(i, draw)));
      fTargets.push_back(target);
      fCells[CellOf(target[0], target[1])].push_back(i);
    }
  }

  // The area of the points, one base inside the border.
  [[nodiscard]] double Width() const { return (fColumns - 3) * kBase; }
  [[nodiscard]] double Height() const { return (fRows - 3) * kBase; }

  // Those images that see the point, the nearest targets first, at most so many.
  [[nodiscard]] std::vector<std::uint32_t> Nearest(const Vec3& x, std::uint32_t count) const {
    std::vector<std::uint32_t> near;
    const auto [column, row] = CellOf(x[0], x[1]);
    for (int reach = 2; near.size() < 2 * count && reach < 40; ++reach) {
      near.clear();
      for (int c = column - reach; c <= column + reach; ++c)
        for (int r = row - reach; r <= row + reach; ++r)
          if (const auto cell = fCells.find({c, r}); cell != fCells.end())
            near.insert(near.end(), cell->second.begin(), cell->second.end());
    }
    const auto distance = [&](std::uint32_t i) {
      return std::hypot(fTargets[i][0] - x[0], fTargets[i][1] - x[1]);
    };
    std::sort(near.begin(), near.end(), [&](std::uint32_t a, std::uint32_t b) {
      return std::pair(distance(a), a) < std::pair(distance(b), b);
    });
    std::vector<std::uint32_t> seen;
    for (const std::uint32_t i : near) {
      const ImagePoint image = See(stations[i], x);
      if (std::fabs(image.x) < kHalfFormat && std::fabs(image.y) < kHalfFormat) seen.push_back(i);
      if (seen.size() == count) break;
    }
    return seen;
  }

  std::vector<Station> stations;

 private:
  using Cell = std::pair<int, int>;
  static Cell CellOf(double x, double y) {
    return {static_cast<int>(std::floor(x / kBase)), static_cast<int>(std::floor(y / kBase))};
  }

  std::uint32_t fColumns, fRows;
  std::vector<Vec3> fTargets;
  std::map<Cell, std::vector<std::uint32_t>> fCells;
};

// Row by row, so that neighbours have near numbers.
std::vector<DrawnPoint> DrawRelief(const NetworkPlan& plan, const Grid& grid, Draw& draw) {
  const double rows =
      std::max(1.0, std::round(std::sqrt(plan.points * grid.Height() / grid.Width())));
  const auto perRow = std::max(1U, static_cast<std::uint32_t>(plan.points / rows));
  std::vector<DrawnPoint> points(plan.points);
  for (std::uint32_t n = 0; n < plan.points; ++n) {
    const double x = Grid::kBase + grid.Width() * (n % perRow) / perRow + draw.Normal(0.02);
    const double y = Grid::kBase + grid.Height() * n / plan.points + draw.Normal(0.02);
    const double z = 0.45 * std::sin(2.1 * x) * std::cos(1.7 * y) + draw.Normal(0.15);
    points[n].x = {x, y, z};
    std::vector<std::uint32_t> pool = grid.Nearest(points[n].x, plan.pool);
    if (pool.size() < plan.rays) throw std::runtime_error("a point is seen in too few images");
    points[n].images = draw.Some(std::move(pool), plan.rays);
  }
  return points;
}

void WriteFile(const fs::path& path, const fmt::memory_buffer& text) {
  std::ofstream file(path, std::ios::binary);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) throw std::runtime_error(path.string() + " cannot be written");
}

template <typename... Values>
void Append(fmt::memory_buffer& text,
            fmt::format_string<const Values&...> format,
            const Values&... values) {
  fmt::format_to(std::back_inserter(text), format, values...);
}

void WriteNetwork(const std::vector<Station>& stations,
                  const std::vector<DrawnPoint>& points,
                  Draw& draw,
                  const fs::path& folder) {
  fs::create_directories(folder);
  fmt::memory_buffer cameras;
  Append(cameras, "id,ck,estimate\n1,{},ck xh yh a1 a2 a3 b1 b2\n", kStartPrincipalDistance);
  WriteFile(folder / "cameras.csv", cameras);

  fmt::memory_buffer images;
  Append(images, "id,camera,x0,y0,z0,omega,phi,kappa\n");
  for (std::size_t i = 0; i < stations.size(); ++i) {
    Append(images, "{},1", i + 1);
    for (const double x : stations[i].centre)
      Append(images, ",{:.6f}", x + draw.Normal(kPositionError));
    for (const double angle : stations[i].angles)
      Append(images, ",{:.6f}", angle * 180.0 / kPi + draw.Normal(kAngleError));
    Append(images, "\n");
  }
  WriteFile(folder / "images.csv", images);

  fmt::memory_buffer objects;
  Append(objects, "id,x,y,z,datum\n");
  for (std::size_t n = 0; n < points.size(); ++n) {
    Append(objects, "{}", n + 1);
    for (const double x : points[n].x) Append(objects, ",{:.6f}", x + draw.Normal(kPositionError));
    Append(objects, ",1\n");
  }
  WriteFile(folder / "points.csv", objects);

  fmt::memory_buffer rays;
  Append(rays, "point,image,x,y,sx,sy\n");
  for (std::size_t n = 0; n < points.size(); ++n)
    for (const std::uint32_t i : points[n].images) {
      const ImagePoint image = See(stations[i], points[n].x);
      const double x = image.x + draw.Normal(kNoise);
      const double y = image.y + draw.Normal(kNoise);
      Append(rays, "{},{},{:.6f},{:.6f},{},{}\n", n + 1, i + 1, x, y, kNoise, kNoise);
    }
  WriteFile(folder / "image_coordinates.csv", rays);

  fmt::memory_buffer job;
  Append(job,
         "title = \"Drawn network\"\n"
         "length_unit = \"m\"\n"
         "image_unit = \"mm\"\n"
         "language = \"english\"\n"
         "s0_apriori = {}\n"
         "datum = [\"translation\", \"rotation\", \"scale\"]\n",
         kNoise);
  WriteFile(folder / "job.toml", job);
}

}  // namespace

void DrawNetwork(const NetworkPlan& plan, const fs::path& folder) {
  if (plan.rays > plan.images) throw std::runtime_error("more rays than images");
  Draw draw(plan.seed);
  if (plan.layout == Layout::kDome) {
    const std::vector<Station> stations = DrawDome(plan, draw);
    WriteNetwork(stations, DrawObject(plan, draw), draw, folder);
  } else {
    const Grid grid(plan, draw);
    WriteNetwork(grid.stations, DrawRelief(plan, grid, draw), draw, folder);
  }
}

}  // namespace cardo::bench
