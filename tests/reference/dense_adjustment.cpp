#include "reference/dense_adjustment.h"

#include <cmath>
#include <cstddef>
#include <functional>
#include <map>
#include <stdexcept>

namespace reference {
namespace {

using Vec = std::array<Real, 3>;
using Mat = std::array<Real, 9>;

Vec Apply(const Mat& m, const Vec& x) {
  return {m[0] * x[0] + m[1] * x[1] + m[2] * x[2],
          m[3] * x[0] + m[4] * x[1] + m[5] * x[2],
          m[6] * x[0] + m[7] * x[1] + m[8] * x[2]};
}
Vec ApplyTransposed(const Mat& m, const Vec& x) {
  return Apply({m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]}, x);
}
Mat Product(const Mat& a, const Mat& b) {
  Mat c{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
  return c;
}

struct Pose {
  Mat r{};
  Vec t{};
  [[nodiscard]] Vec Out(const Vec& x) const {
    Vec y = Apply(r, x);
    for (std::size_t i = 0; i < 3; ++i) y[i] += t[i];
    return y;
  }
  [[nodiscard]] Vec In(const Vec& x) const {
    return ApplyTransposed(r, {x[0] - t[0], x[1] - t[1], x[2] - t[2]});
  }
};

// The rotation of the quaternion (d / 2, 1), from the left.
void Turn(Pose& pose, Real a, Real b, Real c) {
  const Real x = a / 2, y = b / 2, z = c / 2;
  const Real n = x * x + y * y + z * z + 1;
  const Mat q = {(1 + x * x - y * y - z * z) / n,
                 2 * (x * y - z) / n,
                 2 * (x * z + y) / n,
                 2 * (x * y + z) / n,
                 (1 - x * x + y * y - z * z) / n,
                 2 * (y * z - x) / n,
                 2 * (x * z - y) / n,
                 2 * (y * z + x) / n,
                 (1 - x * x - y * y + z * z) / n};
  pose.r = Product(q, pose.r);
}

constexpr std::uint32_t kBits[12] = {
    0x1, 0x2, 0x4, 0x10, 0x20, 0x40, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000};

enum Parameter { Ck, Xh, Yh, A1, A2, A3, B1, B2, C1, C2, AZ1, AZ2 };

struct Camera {
  std::array<Real, 12> p{};
  Real r0 = 0;
  std::vector<std::size_t> free;
};

struct State {
  std::vector<Camera> cameras;
  std::vector<Pose> images;
  std::vector<Vec> points;
  std::vector<Vec> projections;
};

// Where a group's unknowns begin, and how one of them is moved.
struct Unknown {
  std::function<void(State&, Real)> move;
  // Digits of the step are chosen by the size of what is moved.
  Real step;
};

class Problem {
 public:
  explicit Problem(const Network& network) : fNetwork(network) { Index(); }

  [[nodiscard]] State Start() const {
    State s;
    for (const auto& c : fNetwork.cameras) {
      Camera camera;
      const double values[12] = {
          c.Ck, c.Xh, c.Yh, c.A1, c.A2, c.A3, c.B1, c.B2, c.C1, c.C2, c.AZ1, c.AZ2};
      for (std::size_t i = 0; i < 12; ++i) {
        camera.p[i] = values[i];
        if ((c.ParameterMask & kBits[i]) != 0) camera.free.push_back(i);
      }
      camera.r0 = c.R0;
      s.cameras.push_back(camera);
    }
    for (const auto& e : fNetwork.images) {
      Pose pose;
      for (std::size_t i = 0; i < 9; ++i) pose.r[i] = e.Rotation[i];
      pose.t = {e.X0, e.Y0, e.Z0};
      s.images.push_back(pose);
    }
    for (const auto& p : fNetwork.points) s.points.push_back({p.X, p.Y, p.Z});
    for (const auto& p : fNetwork.projections) s.projections.push_back({p.Ck, p.Xh, p.Yh});
    return s;
  }

  [[nodiscard]] std::vector<Unknown> Unknowns(const State& start) const {
    std::vector<Unknown> u;
    for (std::size_t i = 0; i < fNetwork.points.size(); ++i)
      if ((fNetwork.points[i].Flags & 0x11) == 0x01)
        for (std::size_t k = 0; k < 3; ++k)
          u.push_back({[i, k](State& s, Real d) { s.points[i][k] += d; }, 1e-6L});
    for (std::size_t i = 0; i < fNetwork.images.size(); ++i)
      if ((fNetwork.images[i].Flags & 0x11) == 0x01) {
        for (std::size_t k = 0; k < 3; ++k)
          u.push_back({[i, k](State& s, Real d) { s.images[i].t[k] += d; }, 1e-6L});
        for (std::size_t k = 0; k < 3; ++k)
          u.push_back({[i, k](State& s, Real d) {
                         Turn(s.images[i], k == 0 ? d : 0, k == 1 ? d : 0, k == 2 ? d : 0);
                       },
                       1e-6L});
      }
    for (std::size_t i = 0; i < fNetwork.projections.size(); ++i)
      if ((fNetwork.projections[i].Flags & 0x11) == 0x01)
        for (std::size_t k = 0; k < 3; ++k)
          u.push_back({[i, k](State& s, Real d) { s.projections[i][k] += d; }, 1e-5L});
    for (std::size_t i = 0; i < fNetwork.cameras.size(); ++i)
      if ((fNetwork.cameras[i].Flags & 0x11) == 0x01)
        for (const std::size_t p : start.cameras[i].free) {
          const Real steps[12] = {
              1e-5L, 1e-5L, 1e-5L, 1e-7L, 1e-9L, 1e-11L, 1e-7L, 1e-7L, 1e-6L, 1e-6L, 1e-7L, 1e-9L};
          u.push_back({[i, p](State& s, Real d) { s.cameras[i].p[p] += d; }, steps[p]});
        }
    return u;
  }

  [[nodiscard]] std::size_t Components() const {
    return 2 * fNetwork.imagePoints.size() + 3 * fNetwork.measured.size() +
           fNetwork.distances.size();
  }

  // All computed values. What the library's rows leave out on purpose is frozen at a given state:
  // the depth in the distortion when a point or an image moves, and in images with a projection
  // the principal distance and the factor Cp / Ck when a camera parameter moves.
  struct Frozen {
    bool depth = false;
    bool projectionScale = false;
    const State* at = nullptr;
  };
  [[nodiscard]] std::vector<Real> Computed(const State& s, const Frozen& frozen) const {
    std::vector<Real> values;
    values.reserve(Components());
    for (const auto& o : fNetwork.imagePoints) {
      const std::size_t point = fPoint.at(o.PointId);
      std::size_t image, base;
      bool relative = false;
      if (const auto pair = fPair.find(o.EorId); pair != fPair.end()) {
        image = fImage.at(fNetwork.pairs[pair->second].EorId);
        base = fImage.at(fNetwork.pairs[pair->second].BaseEorId);
        relative = true;
      } else {
        image = base = fImage.at(o.EorId);
      }
      const auto intoCamera = [&](const State& state) {
        Vec x = state.images[image].In(World(state, point));
        if (relative) x = state.images[base].In(x);
        return x;
      };
      const Vec x = intoCamera(s);
      const Real depth = frozen.depth ? intoCamera(*frozen.at)[2] : x[2];
      const std::size_t c = fCamera.at(fNetwork.images[base].IorId);
      const int projectionId = fNetwork.images[base].ProjectionId;
      const auto projection = fProjection.find(projectionId);
      const Camera& camera = s.cameras[c];
      const Real px = camera.p[Ck] * x[0] / x[2];
      const Real py = camera.p[Ck] * x[1] / x[2];
      std::array<Real, 2> d = Distortion(camera, px, py, depth);
      Real cp = camera.p[Ck], hx = camera.p[Xh], hy = camera.p[Yh];
      if (projection != fProjection.end()) {
        const Vec& values3 = s.projections[projection->second];
        cp = values3[0];
        hx = values3[1];
        hy = values3[2];
        if (frozen.projectionScale) {
          // The camera's principal distance has no coefficient, and those of the distortion come
          // without Cp / Ck: the ideal point stays, and what the distortion gains there is added
          // unscaled.
          const Camera& still = frozen.at->cameras[c];
          const Real sx = still.p[Ck] * x[0] / x[2];
          const Real sy = still.p[Ck] * x[1] / x[2];
          const std::array<Real, 2> d0 = Distortion(still, sx, sy, depth);
          const std::array<Real, 2> d1 = Distortion(camera, sx, sy, depth);
          values.push_back((sx + d0[0]) / still.p[Ck] * cp + hx + (d1[0] - d0[0]));
          values.push_back((sy + d0[1]) / still.p[Ck] * cp + hy + (d1[1] - d0[1]));
          continue;
        }
      }
      values.push_back((px + d[0]) / camera.p[Ck] * cp + hx);
      values.push_back((py + d[1]) / camera.p[Ck] * cp + hy);
    }
    for (const auto& o : fNetwork.measured) {
      Vec x = World(s, fPoint.at(o.PointId));
      if (o.ReferenceEor != -1) x = s.images[fImage.at(o.ReferenceEor)].In(x);
      for (const Real value : x) values.push_back(value);
    }
    for (const auto& o : fNetwork.distances) {
      const Vec a = World(s, fPoint.at(o.Point1));
      const Vec b = World(s, fPoint.at(o.Point2));
      Real sum = 0;
      for (std::size_t k = 0; k < 3; ++k) sum += (a[k] - b[k]) * (a[k] - b[k]);
      values.push_back(std::sqrt(sum));
    }
    return values;
  }

  void MeasuredAndWeights(std::vector<Real>& measured, std::vector<Real>& weights) const {
    const Real s0 = fNetwork.s0Apriori;
    const auto add = [&](Real value, Real sigma) {
      measured.push_back(value);
      weights.push_back(s0 * s0 / (sigma * sigma));
    };
    for (const auto& o : fNetwork.imagePoints) {
      add(o.X, o.Sx);
      add(o.Y, o.Sy);
    }
    for (const auto& o : fNetwork.measured) {
      add(o.X, o.Sx);
      add(o.Y, o.Sy);
      add(o.Z, o.Sz);
    }
    for (const auto& o : fNetwork.distances) add(o.S, o.Sigma);
  }

 private:
  void Index() {
    for (std::size_t i = 0; i < fNetwork.points.size(); ++i) fPoint[fNetwork.points[i].Id] = i;
    for (std::size_t i = 0; i < fNetwork.images.size(); ++i) fImage[fNetwork.images[i].Id] = i;
    for (std::size_t i = 0; i < fNetwork.cameras.size(); ++i) fCamera[fNetwork.cameras[i].Id] = i;
    for (std::size_t i = 0; i < fNetwork.pairs.size(); ++i) fPair[fNetwork.pairs[i].Id] = i;
    for (std::size_t i = 0; i < fNetwork.projections.size(); ++i)
      fProjection[fNetwork.projections[i].Id] = i;
  }

  [[nodiscard]] Vec World(const State& s, std::size_t point) const {
    const int reference = fNetwork.points[point].ReferenceEor;
    return reference == -1 ? s.points[point] : s.images[fImage.at(reference)].Out(s.points[point]);
  }

  [[nodiscard]] static std::array<Real, 2> Distortion(const Camera& c, Real x, Real y, Real z) {
    const Real r2 = x * x + y * y;
    const Real q = c.r0 * c.r0;
    const Real d1 = r2 - q, d2 = r2 * r2 - q * q, d3 = r2 * r2 * r2 - q * q * q;
    const Real k = c.p[A1] * d1 + c.p[A2] * d2 + c.p[A3] * d3 + (c.p[AZ1] * d1 + c.p[AZ2] * d2) / z;
    return {x * k + c.p[B1] * (2 * x * x + r2) + 2 * c.p[B2] * x * y + c.p[C1] * x + c.p[C2] * y,
            y * k + c.p[B2] * (2 * y * y + r2) + 2 * c.p[B1] * x * y};
  }

  const Network& fNetwork;
  std::map<int, std::size_t> fPoint, fImage, fCamera, fPair, fProjection;
};

// Gauss-Jordan on a symmetric positive definite matrix, scaled to a unit diagonal first.
std::vector<std::vector<Real>> Inverse(std::vector<std::vector<Real>> a) {
  const std::size_t n = a.size();
  std::vector<Real> scale(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (!(a[i][i] > 0)) throw std::runtime_error("reference: an unknown without observations");
    scale[i] = 1 / std::sqrt(a[i][i]);
  }
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) a[i][j] *= scale[i] * scale[j];
  for (std::size_t k = 0; k < n; ++k) {
    if (!(a[k][k] > 1e-16L)) throw std::runtime_error("reference: singular");
    const Real pivot = 1 / a[k][k];
    for (std::size_t i = 0; i < n; ++i) {
      if (i == k || a[i][k] == 0) continue;
      const Real factor = a[i][k] * pivot;
      for (std::size_t j = 0; j < n; ++j)
        if (j != k) a[i][j] -= factor * a[k][j];
      a[i][k] = -factor;
    }
    for (std::size_t j = 0; j < n; ++j)
      if (j != k) a[k][j] *= pivot;
    a[k][k] = pivot;
  }
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) a[i][j] *= scale[i] * scale[j];
  return a;
}

// Gauss-Jordan with row pivoting, for a bordered system.
std::vector<std::vector<Real>> GeneralInverse(std::vector<std::vector<Real>> a) {
  const std::size_t n = a.size();
  std::vector<std::vector<Real>> b(n, std::vector<Real>(n, 0));
  for (std::size_t i = 0; i < n; ++i) b[i][i] = 1;
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t p = k;
    for (std::size_t i = k; i < n; ++i)
      if (std::fabs(a[i][k]) > std::fabs(a[p][k])) p = i;
    if (a[p][k] == 0) throw std::runtime_error("reference: singular");
    std::swap(a[k], a[p]);
    std::swap(b[k], b[p]);
    const Real pivot = a[k][k];
    for (std::size_t j = 0; j < n; ++j) {
      a[k][j] /= pivot;
      b[k][j] /= pivot;
    }
    for (std::size_t i = 0; i < n; ++i) {
      const Real factor = a[i][k];
      if (i == k || factor == 0) continue;
      for (std::size_t j = 0; j < n; ++j) {
        a[i][j] -= factor * a[k][j];
        b[i][j] -= factor * b[k][j];
      }
    }
  }
  return b;
}

// The datum of a free network: rows against the unknowns and their right-hand side. With c the
// mean of the datum points X: sum dX = sum (X0 - X), sum (X - c) x dX = sum (X - c) x (X0 - c),
// sum (X - c) dX = -sum (X - X0) (X0 - c). All points of a free network are unknowns, in order.
struct Datum {
  std::vector<std::vector<Real>> rows;
  std::vector<Real> rhs;
};

Datum MakeDatum(const Network& network, const State& s, std::size_t u) {
  std::vector<std::size_t> marked;
  for (std::size_t i = 0; i < network.points.size(); ++i)
    if ((network.points[i].PointFlags & 1) != 0) marked.push_back(i);
  Vec c{};
  for (const std::size_t i : marked)
    for (std::size_t k = 0; k < 3; ++k) c[k] += s.points[i][k] / static_cast<Real>(marked.size());
  Datum datum;
  const auto add = [&](auto coefficients, auto misclosure) {
    auto& row = datum.rows.emplace_back(u, 0);
    Real w = 0;
    for (const std::size_t i : marked) {
      const auto& p = network.datumPoints.empty() ? network.points[i] : network.datumPoints[i];
      const Vec e = {s.points[i][0] - c[0], s.points[i][1] - c[1], s.points[i][2] - c[2]};
      const Vec e0 = {p.X - c[0], p.Y - c[1], p.Z - c[2]};
      const Vec coefficient = coefficients(e);
      for (std::size_t k = 0; k < 3; ++k) row[3 * i + k] = coefficient[k];
      w += misclosure(e, e0);
    }
    datum.rhs.push_back(w);
  };
  for (std::size_t k = 0; network.datumTranslation && k < 3; ++k)
    add(
        [k](const Vec&) {
          Vec r{};
          r[k] = 1;
          return r;
        },
        [k](const Vec& e, const Vec& e0) { return e0[k] - e[k]; });
  for (std::size_t k = 0; network.datumRotation && k < 3; ++k) {
    const std::size_t a = (k + 1) % 3;
    const std::size_t b = (k + 2) % 3;
    add(
        [a, b](const Vec& e) {
          Vec r{};
          r[a] = -e[b];
          r[b] = e[a];
          return r;
        },
        [a, b](const Vec& e, const Vec& e0) { return e[a] * e0[b] - e[b] * e0[a]; });
  }
  if (network.datumScale)
    add([](const Vec& e) { return e; },
        [](const Vec& e, const Vec& e0) {
          Real w = 0;
          for (std::size_t k = 0; k < 3; ++k) w -= (e[k] - e0[k]) * e0[k];
          return w;
        });
  return datum;
}

void WriteBack(const Network& network,
               const State& s,
               const std::vector<std::vector<Real>>& q,
               Real s0,
               Network& out) {
  out = network;
  std::size_t column = 0;
  const auto sigma = [&](std::size_t c) { return static_cast<double>(s0 * std::sqrt(q[c][c])); };
  for (std::size_t i = 0; i < out.points.size(); ++i) {
    auto& p = out.points[i];
    p.X = static_cast<double>(s.points[i][0]);
    p.Y = static_cast<double>(s.points[i][1]);
    p.Z = static_cast<double>(s.points[i][2]);
    if ((p.Flags & 0x11) != 0x01) continue;
    p.Sx = sigma(column);
    p.Sy = sigma(column + 1);
    p.Sz = sigma(column + 2);
    column += 3;
  }
  for (std::size_t i = 0; i < out.images.size(); ++i) {
    auto& e = out.images[i];
    e.X0 = static_cast<double>(s.images[i].t[0]);
    e.Y0 = static_cast<double>(s.images[i].t[1]);
    e.Z0 = static_cast<double>(s.images[i].t[2]);
    for (std::size_t k = 0; k < 9; ++k) e.Rotation[k] = static_cast<double>(s.images[i].r[k]);
    if ((e.Flags & 0x11) != 0x01) continue;
    for (std::size_t k = 0; k < 3; ++k) e.SPosition[k] = sigma(column + k);
    for (std::size_t k = 0; k < 3; ++k) e.SRotation[k] = sigma(column + 3 + k);
    column += 6;
  }
  for (std::size_t i = 0; i < out.projections.size(); ++i) {
    auto& p = out.projections[i];
    p.Ck = static_cast<double>(s.projections[i][0]);
    p.Xh = static_cast<double>(s.projections[i][1]);
    p.Yh = static_cast<double>(s.projections[i][2]);
    if ((p.Flags & 0x11) != 0x01) continue;
    p.SCk = sigma(column);
    p.SXh = sigma(column + 1);
    p.SYh = sigma(column + 2);
    column += 3;
  }
  for (std::size_t i = 0; i < out.cameras.size(); ++i) {
    auto& c = out.cameras[i];
    double* const values[12] = {
        &c.Ck, &c.Xh, &c.Yh, &c.A1, &c.A2, &c.A3, &c.B1, &c.B2, &c.C1, &c.C2, &c.AZ1, &c.AZ2};
    for (std::size_t k = 0; k < 12; ++k) *values[k] = static_cast<double>(s.cameras[i].p[k]);
    if ((c.Flags & 0x11) != 0x01) continue;
    const auto& free = s.cameras[i].free;
    for (std::size_t a = 0; a < free.size(); ++a) {
      c.Sigma[free[a]] = sigma(column + a);
      for (std::size_t b = 0; b < free.size(); ++b)
        c.Correlation[free[a]][free[b]] =
            static_cast<double>(q[column + a][column + b] /
                                std::sqrt(q[column + a][column + a] * q[column + b][column + b]));
    }
    column += free.size();
  }
}

}  // namespace

Result Adjust(const Network& network) {
  const Problem problem(network);
  State state = problem.Start();
  const std::vector<Unknown> unknowns = problem.Unknowns(state);
  const std::size_t n = problem.Components();
  const std::size_t u = unknowns.size();
  std::size_t cameraUnknowns = 0;
  for (std::size_t i = 0; i < network.cameras.size(); ++i)
    if ((network.cameras[i].Flags & 0x11) == 0x01) cameraUnknowns += state.cameras[i].free.size();
  std::vector<Real> measured;
  std::vector<Real> weights;
  problem.MeasuredAndWeights(measured, weights);

  Result result;
  result.observations = static_cast<int>(n);
  result.unknowns = static_cast<int>(u);
  std::vector<std::vector<Real>> a(n, std::vector<Real>(u));
  std::vector<std::vector<std::size_t>> entries(n);  // columns that are not zero, by row
  std::vector<std::vector<Real>> q;
  for (result.iterations = 0; result.iterations < 60; ++result.iterations) {
    for (std::size_t j = 0; j < u; ++j) {
      const bool camera = j >= u - cameraUnknowns;
      const Problem::Frozen frozen{!camera, camera, &state};
      State plus = state;
      State minus = state;
      unknowns[j].move(plus, unknowns[j].step);
      unknowns[j].move(minus, -unknowns[j].step);
      const auto fp = problem.Computed(plus, frozen);
      const auto fm = problem.Computed(minus, frozen);
      for (std::size_t i = 0; i < n; ++i) a[i][j] = (fp[i] - fm[i]) / (2 * unknowns[j].step);
    }
    const auto computed = problem.Computed(state, {});
    std::vector<std::vector<Real>> normal(u, std::vector<Real>(u, 0));
    std::vector<Real> rhs(u, 0);
    for (std::size_t i = 0; i < n; ++i) {
      entries[i].clear();
      for (std::size_t j = 0; j < u; ++j)
        if (a[i][j] != 0) entries[i].push_back(j);
      for (const std::size_t j : entries[i]) {
        const Real t = weights[i] * a[i][j];
        for (const std::size_t k : entries[i]) normal[j][k] += t * a[i][k];
        rhs[j] += t * (measured[i] - computed[i]);
      }
    }
    const Datum datum = MakeDatum(network, state, u);
    const std::size_t b = datum.rows.size();
    result.constraints = static_cast<int>(b);
    if (b == 0) {
      q = Inverse(normal);
    } else {
      for (std::size_t j = 0; j < u; ++j) normal[j].resize(u + b, 0);
      for (std::size_t k = 0; k < b; ++k) {
        auto row = datum.rows[k];
        row.resize(u + b, 0);
        for (std::size_t j = 0; j < u; ++j) normal[j][u + k] = row[j];
        normal.push_back(row);
      }
      rhs.insert(rhs.end(), datum.rhs.begin(), datum.rhs.end());
      q = GeneralInverse(normal);
    }
    Real largest = 0;
    State next = state;
    for (std::size_t j = 0; j < u; ++j) {
      Real dx = 0;
      for (std::size_t k = 0; k < u + b; ++k) dx += q[j][k] * rhs[k];
      largest = std::max(largest, std::fabs(dx) / std::sqrt(q[j][j]));
      unknowns[j].move(next, dx);
    }
    state = next;
    // Increments beside their standard deviations for an S0 of the size of the a-priori one.
    if (largest < 1e-10L * static_cast<Real>(network.s0Apriori)) {
      result.converged = true;
      break;
    }
  }
  const auto computed = problem.Computed(state, {});
  Real sum = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const Real v = computed[i] - measured[i];
    result.residuals.push_back(v);
    sum += weights[i] * v * v;
    Real form = 0;
    for (const std::size_t j : entries[i])
      for (const std::size_t k : entries[i]) form += a[i][j] * q[j][k] * a[i][k];
    result.redundancy.push_back(1 - weights[i] * form);
    result.redundancySum += result.redundancy.back();
  }
  const auto r =
      static_cast<Real>(n) - static_cast<Real>(u) + static_cast<Real>(result.constraints);
  result.s0 = r > 0 ? std::sqrt(sum / r) : 0;
  WriteBack(network, state, q, result.s0, result.adjusted);
  return result;
}

}  // namespace reference
