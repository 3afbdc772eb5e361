#include "determinism/figures.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <sstream>

namespace determinism {
namespace {

class Reader {
 public:
  explicit Reader(void* job) : fJob(job) {}

  // Starts the figures of one record.
  void Name(std::string name) {
    const int times = ++fTimes[name];
    if (times > 1) name += " #" + std::to_string(times);
    fName = std::move(name);
  }
  void Count(const char* field, double value) { Put(field, {Kind::Count, value, 0.0}); }
  void Value(const char* field, double value, double sigma) {
    Put(field, {Kind::Value, value, sigma});
    Put(std::string("sigma of ") + field, {Kind::Sigma, sigma, 0.0});
  }
  void Component(const char* field, double sigma, double v, double r, double t) {
    Put(std::string("V") + field, {Kind::Residual, v, sigma});
    Put(std::string("R") + field, {Kind::Redundancy, r, 0.0});
    Put(std::string("T") + field, {Kind::Test, t, 0.0});
  }
  void Correlation(const std::string& field, double value) {
    Put(field, {Kind::Redundancy, value, 0.0});
  }

  template <typename Record, typename Use>
  void ForAll(int count, int (*get)(void*, int, Record*), Use use) {
    for (int i = 0; i < count; ++i) {
      Record record{};
      const int status = get(fJob, i, &record);
      use(record);
      Count("status", status);
    }
  }

  Figures figures;

 private:
  void Put(const std::string& field, const Figure& figure) {
    figures[fName + " " + field] = figure;
  }

  void* fJob;
  std::string fName;
  std::map<std::string, int> fTimes;
};

constexpr const char* kParameters[12] = {
    "Ck", "Xh", "Yh", "A1", "A2", "A3", "B1", "B2", "C1", "C2", "AZ1", "AZ2"};
constexpr const char* kElements[9] = {"R0", "R1", "R2", "R3", "R4", "R5", "R6", "R7", "R8"};
constexpr const char* kTurns[3] = {"turn 0", "turn 1", "turn 2"};
constexpr const char* kBase[3] = {"base 0", "base 1", "base 2"};
constexpr const char* kDirection[3] = {"direction 0", "direction 1", "direction 2"};
constexpr const char* kPoint[3] = {"point 0", "point 1", "point 2"};
constexpr const char* kNormal[3] = {"normal 0", "normal 1", "normal 2"};

void ReadResults(Reader& read, void* job, int status) {
  read.Name("run");
  read.Count("status", status);
  for (const eXYZ_Result which : {eXYZ_ResultBlunderCount,
                                  eXYZ_ResultActiveIors,
                                  eXYZ_ResultActiveEors,
                                  eXYZ_ResultActiveObkos,
                                  eXYZ_ResultUnknowns,
                                  eXYZ_ResultObservations,
                                  eXYZ_ResultConstraints,
                                  eXYZ_ResultRedundancy}) {
    int value = -1;
    XYZ_GetResult(job, which, &value);
    read.Count(("result " + std::to_string(which)).c_str(), value);
  }
  double s0 = -1.0, critical = -1.0, redundancy = -1.0;
  XYZ_GetResult(job, eXYZ_ResultS0, &s0);
  XYZ_GetResult(job, eXYZ_ResultBlunderTestValue, &critical);
  XYZ_GetResult(job, eXYZ_ResultRedundancyValue, &redundancy);
  read.Value("s0", s0, s0);
  read.Count("critical value", critical);
  read.Component(" sum", 1.0, 0.0, redundancy, 0.0);
}

void ReadGroups(Reader& read, void* job) {
  read.ForAll<sXYZ_InteriorOrient>(
      XYZ_GetInteriorOrientCnt(job), XYZ_GetInteriorOrientAt, [&](const sXYZ_InteriorOrient& c) {
        read.Name("camera " + std::to_string(c.Id));
        const double values[12] = {
            c.Ck, c.Xh, c.Yh, c.A1, c.A2, c.A3, c.B1, c.B2, c.C1, c.C2, c.AZ1, c.AZ2};
        for (int i = 0; i < 12; ++i) {
          read.Value(kParameters[i], values[i], c.Sigma[i]);
          for (int j = 0; j < i; ++j)
            read.Correlation(std::string(kParameters[i]) + "-" + kParameters[j],
                             c.Correlation[i][j]);
        }
        read.Count("flags", c.Flags);
      });
  read.ForAll<sXYZ_ExteriorOrient2>(
      XYZ_GetExteriorOrientCnt(job), XYZ_GetExteriorOrientAt, [&](const sXYZ_ExteriorOrient2& e) {
        read.Name("image " + std::to_string(e.Id));
        read.Value("X0", e.X0, e.SPosition[0]);
        read.Value("Y0", e.Y0, e.SPosition[1]);
        read.Value("Z0", e.Z0, e.SPosition[2]);
        // Elements of the matrix, or the three angles.
        const int elements = (e.Format & 0xFFU) == 3 ? 9 : 3;
        for (int i = 0; i < elements; ++i) read.Value(kElements[i], e.Rotation[i], e.SMatrix[i]);
        for (int i = 0; i < 3; ++i) read.Value(kTurns[i], 0.0, e.SRotation[i]);
        read.Count("rays", e.RayCount);
        read.Count("outliers", e.BlunderCount);
        read.Count("flags", e.Flags);
        read.Component(" rms x", e.RmsVx, e.RmsVx, 0.0, 0.0);
        read.Component(" rms y", e.RmsVy, e.RmsVy, 0.0, 0.0);
      });
  read.ForAll<sXYZ_ObjectCoord>(
      XYZ_GetObjectCoordCnt(job), XYZ_GetObjectCoordAt, [&](const sXYZ_ObjectCoord& p) {
        read.Name("point " + std::to_string(p.Id));
        read.Value("X", p.X, p.Sx);
        read.Value("Y", p.Y, p.Sy);
        read.Value("Z", p.Z, p.Sz);
        read.Count("rays", p.RayCount);
        read.Count("outliers", p.BlunderCount);
        read.Count("flags", p.Flags);
      });
  read.ForAll<sXYZ_Projection>(
      XYZ_GetProjectionCnt(job), XYZ_GetProjectionAt, [&](const sXYZ_Projection& p) {
        read.Name("projection " + std::to_string(p.Id));
        read.Value("Ck", p.Ck, p.SCk);
        read.Value("Xh", p.Xh, p.SXh);
        read.Value("Yh", p.Yh, p.SYh);
      });
  read.ForAll<sXYZ_Line>(XYZ_GetLineCnt(job), XYZ_GetLineAt, [&](const sXYZ_Line& l) {
    read.Name("line " + std::to_string(l.Id));
    for (int i = 0; i < 3; ++i) {
      read.Value(kBase[i], l.P1[i], l.SP1[i]);
      read.Value(kDirection[i], l.P2[i], l.SP2[i]);
    }
  });
  read.ForAll<sXYZ_Plane>(XYZ_GetPlaneCnt(job), XYZ_GetPlaneAt, [&](const sXYZ_Plane& p) {
    read.Name("plane " + std::to_string(p.Id));
    for (int i = 0; i < 3; ++i) {
      read.Value(kPoint[i], p.Point[i], p.SPlane[i]);
      read.Value(kNormal[i], p.Normal[i], p.SPlane[3 + i]);
    }
  });
}

void ReadObservations(Reader& read, void* job) {
  const auto pair = [](int a, int b) { return std::to_string(a) + "/" + std::to_string(b); };
  read.ForAll<sXYZ_PictureCoord>(
      XYZ_GetPictureCoordCnt(job), XYZ_GetPictureCoordsAt, [&](const sXYZ_PictureCoord& o) {
        read.Name("ray " + pair(o.PointId, o.EorId));
        read.Component("x", o.Sx, o.Vx, o.Rx, o.Tx);
        read.Component("y", o.Sy, o.Vy, o.Ry, o.Ty);
        read.Count("flags", o.Flags);
      });
  read.ForAll<sXYZ_PictureLineCoord>(
      XYZ_GetLinePictureCoordCnt(job),
      XYZ_GetLinePictureCoordAt,
      [&](const sXYZ_PictureLineCoord& o) {
        read.Name("line ray " + std::to_string(o.Id) + " " + pair(o.LineId, o.EorId));
        read.Component("", o.Sx, o.V, o.R, o.T);
        read.Count("flags", o.Flags);
      });
  read.ForAll<sXYZ_MeasuredObjectCoord>(XYZ_GetMeasuredObjectCoordCnt(job),
                                        XYZ_GetMeasuredObjectCoordAt,
                                        [&](const sXYZ_MeasuredObjectCoord& o) {
                                          read.Name("measured " + pair(o.PointId, o.ReferenceEor));
                                          read.Component("x", o.Sx, o.Vx, o.Rx, o.Tx);
                                          read.Component("y", o.Sy, o.Vy, o.Ry, o.Ty);
                                          read.Component("z", o.Sz, o.Vz, o.Rz, o.Tz);
                                          read.Count("flags", o.Flags);
                                        });
  read.ForAll<sXYZ_Distance>(
      XYZ_GetDistanceCnt(job), XYZ_GetDistanceAt, [&](const sXYZ_Distance& o) {
        read.Name("distance " + pair(o.Point1, o.Point2));
        read.Component("", o.Sigma, o.V, o.R, o.T);
        read.Count("flags", o.Flags);
      });
}

double Difference(const Figure& a, const Figure& b) {
  if (!std::isfinite(a.value) || !std::isfinite(b.value))
    return std::isnan(a.value) == std::isnan(b.value) && !(a.value > b.value) &&
                   !(a.value < b.value)
               ? 0.0
               : std::numeric_limits<double>::infinity();
  const double difference = std::fabs(a.value - b.value);
  switch (a.kind) {
    case Kind::Value:
    case Kind::Residual:
      return a.sigma > 0.0 ? difference / a.sigma : difference;
    case Kind::Sigma:
      return a.value > 0.0 ? difference / a.value : difference;
    default:
      return difference;
  }
}

}  // namespace

Figures ReadFigures(void* job, int status) {
  Reader read(job);
  ReadResults(read, job, status);
  ReadGroups(read, job);
  ReadObservations(read, job);
  return std::move(read.figures);
}

std::string ToText(const Figures& figures) {
  std::string text;
  for (const auto& [name, figure] : figures) {
    char line[128];
    std::snprintf(line,
                  sizeof line,
                  "%d\t%a\t%a\t",
                  static_cast<int>(figure.kind),
                  figure.value,
                  figure.sigma);
    text += line + name + "\n";
  }
  return text;
}

Figures FromText(const std::string& text) {
  Figures figures;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const char* at = line.c_str();
    char* next = nullptr;
    Figure figure;
    figure.kind = static_cast<Kind>(std::strtol(at, &next, 10));
    figure.value = std::strtod(next, &next);
    figure.sigma = std::strtod(next, &next);
    figures[next + 1] = figure;
  }
  return figures;
}

std::map<Kind, Worst> Compare(const Figures& a, const Figures& b) {
  std::map<Kind, Worst> worst;
  const auto take = [&](Kind kind, const std::string& name, double difference) {
    Worst& w = worst[kind];
    if (w.name.empty() || difference > w.difference) w = {difference, name};
  };
  const double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [name, figure] : a) {
    const auto other = b.find(name);
    take(figure.kind, name, other == b.end() ? infinity : Difference(figure, other->second));
  }
  for (const auto& [name, figure] : b)
    if (!a.contains(name)) take(figure.kind, name, infinity);
  return worst;
}

}  // namespace determinism
