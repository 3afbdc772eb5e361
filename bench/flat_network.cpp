#include "flat_network.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <numbers>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>

namespace cardo::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, kParameters> kParameterNames = {
    "ck", "xh", "yh", "a1", "a2", "a3", "b1", "b2", "c1", "c2"};

// Walks through a table of plain numbers; texts stand without quotes.
class FlatTable {
 public:
  FlatTable(const fs::path& path, std::vector<std::string_view> known) : fPath(path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) Fail("cannot be opened");
    fText.assign(std::istreambuf_iterator<char>(file), {});
    fRest = fText;
    Next();
    for (const std::string_view name : fFields) {
      if (std::find(known.begin(), known.end(), name) == known.end())
        Fail(fmt::format("column {} is not one that the peer knows", name));
      fColumns.emplace(name, fColumns.size());
    }
  }

  // The next row; false behind the last one.
  bool Next() {
    while (!fRest.empty()) {
      const std::size_t end = std::min(fRest.find('\n'), fRest.size());
      std::string_view line = fRest.substr(0, end);
      fRest.remove_prefix(std::min(end + 1, fRest.size()));
      if (line.ends_with('\r')) line.remove_suffix(1);
      if (line.empty()) continue;
      fFields.clear();
      for (std::size_t comma = 0; comma != std::string_view::npos;) {
        comma = line.find(',');
        fFields.push_back(line.substr(0, comma));
        if (comma != std::string_view::npos) line.remove_prefix(comma + 1);
      }
      return true;
    }
    return false;
  }

  // Place of the column in a row; of one that the table does not have, none.
  [[nodiscard]] std::size_t Column(std::string_view name) const {
    const auto found = fColumns.find(name);
    return found == fColumns.end() ? kNoColumn : found->second;
  }

  [[nodiscard]] std::string_view Text(std::size_t column) const {
    return column < fFields.size() ? fFields[column] : std::string_view{};
  }

  template <typename Number>
  [[nodiscard]] Number Value(std::size_t column, Number otherwise = {}) const {
    const std::string_view text = Text(column);
    if (text.empty()) return otherwise;
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size())
      Fail(fmt::format("\"{}\" is not a number", text));
    return value;
  }

  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error(fmt::format("{}: {}", fPath.string(), what));
  }

 private:
  static constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();

  fs::path fPath;
  std::string fText;
  std::string_view fRest;
  std::map<std::string_view, std::size_t> fColumns;
  std::vector<std::string_view> fFields;
};

void CheckTables(const fs::path& folder) {
  constexpr std::array<std::string_view, 4> kTables = {
      "cameras.csv", "images.csv", "points.csv", "image_coordinates.csv"};
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (entry.path().extension() == ".csv" &&
        std::find(kTables.begin(), kTables.end(), name) == kTables.end())
      throw std::runtime_error(name + " is not a table that the peer knows");
  }
}

void ReadCamera(const fs::path& folder, FlatNetwork& network) {
  std::vector<std::string_view> known = {"id", "r0", "estimate", "az1", "az2"};
  known.insert(known.end(), kParameterNames.begin(), kParameterNames.end());
  FlatTable table(folder / "cameras.csv", known);
  if (!table.Next()) table.Fail("no camera");
  for (std::size_t i = 0; i < kParameters; ++i)
    network.camera.value[i] = table.Value<double>(table.Column(kParameterNames[i]));
  network.camera.r0 = table.Value<double>(table.Column("r0"));
  for (const char* name : {"az1", "az2"})
    if (table.Value<double>(table.Column(name)) != 0.0)
      table.Fail("the peer has no distortion by distance");
  std::string_view words = table.Text(table.Column("estimate"));
  while (!words.empty()) {
    const std::string_view word = words.substr(0, words.find(' '));
    words.remove_prefix(std::min(word.size() + 1, words.size()));
    if (word.empty()) continue;
    const auto found = std::find(kParameterNames.begin(), kParameterNames.end(), word);
    if (found == kParameterNames.end()) table.Fail(fmt::format("the peer knows no {}", word));
    network.estimated.push_back(static_cast<CameraParameter>(found - kParameterNames.begin()));
  }
  if (table.Next()) table.Fail("the peer takes one camera only");
}

using Places = std::map<std::int64_t, std::size_t>;

Places ReadImages(const fs::path& folder, FlatNetwork& network) {
  constexpr std::array<std::string_view, 6> kPose = {"x0", "y0", "z0", "omega", "phi", "kappa"};
  FlatTable table(folder / "images.csv",
                  {"id", "camera", "x0", "y0", "z0", "omega", "phi", "kappa"});
  Places places;
  while (table.Next()) {
    FlatNetwork::Image image{table.Value<std::int64_t>(table.Column("id")), {}};
    for (std::size_t i = 0; i < 6; ++i)
      image.pose[i] =
          table.Value<double>(table.Column(kPose[i])) * (i < 3 ? 1.0 : std::numbers::pi / 180.0);
    places.emplace(image.id, network.images.size());
    network.images.push_back(image);
  }
  return places;
}

Places ReadPoints(const fs::path& folder, FlatNetwork& network) {
  FlatTable table(folder / "points.csv", {"id", "x", "y", "z", "fixed", "datum"});
  const std::size_t x = table.Column("x"), y = table.Column("y"), z = table.Column("z");
  Places places;
  while (table.Next()) {
    network.points.push_back(
        {table.Value<std::int64_t>(table.Column("id")),
         {table.Value<double>(x), table.Value<double>(y), table.Value<double>(z)},
         table.Value<int>(table.Column("fixed")) != 0,
         table.Value<int>(table.Column("datum")) != 0});
    places.emplace(network.points.back().id, network.points.size() - 1);
  }
  return places;
}

}  // namespace

bool FlatNetwork::IsFree() const noexcept {
  const auto isFixed = [](const Point& point) { return point.isFixed; };
  const auto isDatum = [](const Point& point) { return point.isDatum; };
  return std::none_of(points.begin(), points.end(), isFixed) &&
         std::any_of(points.begin(), points.end(), isDatum);
}

std::size_t FlatNetwork::Unknowns() const noexcept {
  const auto moves = [](const Point& point) { return !point.isFixed; };
  const auto moving = std::count_if(points.begin(), points.end(), moves);
  return 3 * static_cast<std::size_t>(moving) + 6 * images.size() + estimated.size();
}

std::int64_t FlatNetwork::Redundancy() const noexcept {
  return static_cast<std::int64_t>(2 * rays.size()) - static_cast<std::int64_t>(Unknowns()) +
         (IsFree() ? 7 : 0);
}

FlatNetwork ReadFlatNetwork(const fs::path& folder) {
  CheckTables(folder);
  FlatNetwork network;
  ReadCamera(folder, network);
  const Places images = ReadImages(folder, network);
  const Places points = ReadPoints(folder, network);
  FlatTable table(folder / "image_coordinates.csv", {"point", "image", "x", "y", "sx", "sy"});
  const std::size_t x = table.Column("x"), y = table.Column("y");
  const std::size_t sx = table.Column("sx"), sy = table.Column("sy");
  const std::size_t point = table.Column("point"), image = table.Column("image");
  while (table.Next()) {
    const auto ofPoint = points.find(table.Value<std::int64_t>(point));
    const auto ofImage = images.find(table.Value<std::int64_t>(image));
    if (ofPoint == points.end() || ofImage == images.end()) table.Fail("an unknown point or image");
    const auto sigma = table.Value<double>(sx);
    network.rays.push_back({ofPoint->second,
                            ofImage->second,
                            table.Value<double>(x),
                            table.Value<double>(y),
                            sigma,
                            table.Value<double>(sy, sigma)});
  }
  const auto place = [](const FlatNetwork::Ray& ray) { return std::tie(ray.point, ray.image); };
  std::stable_sort(network.rays.begin(), network.rays.end(), [&](const auto& a, const auto& b) {
    return place(a) < place(b);
  });
  return network;
}

}  // namespace cardo::bench
