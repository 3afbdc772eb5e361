#include "peer_accuracy.h"

#include "sparse_inverse.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <algorithm>
#include <ceres/crs_matrix.h>
#include <cmath>
#include <cstddef>
#include <span>
#include <stdexcept>

namespace cardo::bench {
namespace {

using Eigen::Dynamic;
constexpr int kMost = static_cast<int>(kParameters);
using ByCamera = Eigen::Matrix<double, 2, Dynamic, Eigen::RowMajor, 2, kMost>;
// A block of the reduced system, in its place.
template <int Rows, int Columns>
using BlockView = Eigen::Map<Eigen::Matrix<double, Rows, Columns>, 0, Eigen::OuterStride<>>;

// Weighted derivatives of a ray; 0 by what is held fixed.
struct RayRows {
  Eigen::Matrix<double, 2, 3> byPoint;
  Eigen::Matrix<double, 2, 6> byImage;
  ByCamera byCamera;
};

// A point with its rays and, for one that moves, with
//   V = B' B = L L'    W = A' B    Y = W L^-T
// of the derivatives B by the point and A by its images and the camera, block below block.
struct PointRows {
  std::size_t point = 0;
  bool moves = false;
  std::span<const FlatNetwork::Ray> rays;
  std::vector<RayRows> rows;      // as rays
  std::vector<Eigen::Index> top;  // as rays: first row of the ray's image in W
  std::vector<int> blocks;        // of W: images ascending, then the camera
  Eigen::Matrix3d inverseFactor;  // L^-1
  Eigen::Matrix<double, Dynamic, 3> w, y;
};

// The points leave the normal equations; what stays, the images' and the camera's part, is
// inverted where it is not zero, and the points are taken back in one by one.
class PointElimination {
 public:
  PointElimination(const FlatNetwork& network,
                   const ceres::CRSMatrix& jacobian,
                   const std::vector<bool>& held)
      : fNetwork(network),
        fJacobian(jacobian),
        fHeld(held),
        fParameters(static_cast<Eigen::Index>(network.estimated.size())),
        fCamera(network.images.size()),
        fReduced(Widths(network), Pattern(network)) {}

  PeerAccuracy Run(double s0) {
    PointRows point;
    for (Begin(point); Next(point);) Reduce(point);
    // What is held stands alone in the system.
    for (std::size_t i = 0; i < fHeld.size(); ++i)
      if (fHeld[i]) Diagonal(i / 6)(Column(i % 6), Column(i % 6)) = 1.0;
    fReduced.Invert();

    PeerAccuracy accuracy;
    accuracy.points.reserve(3 * fNetwork.points.size());
    accuracy.redundancy.reserve(2 * fNetwork.rays.size());
    for (Begin(point); Next(point);) Return(point, s0, accuracy);
    for (std::size_t i = 0; i < fHeld.size(); ++i)
      accuracy.images.push_back(
          fHeld[i] ? 0.0 : s0 * std::sqrt(Diagonal(i / 6)(Column(i % 6), Column(i % 6))));
    for (Eigen::Index i = 0; i < fParameters; ++i)
      accuracy.camera.push_back(s0 * std::sqrt(CameraBlock()(i, i)));
    return accuracy;
  }

 private:
  // Indices as the matrices count them.
  static Eigen::Index Column(std::size_t place) { return static_cast<Eigen::Index>(place); }

  static std::vector<int> Widths(const FlatNetwork& network) {
    std::vector<int> widths(network.images.size(), 6);
    if (!network.estimated.empty()) widths.push_back(static_cast<int>(network.estimated.size()));
    return widths;
  }

  // Images that share a moving point meet, the camera meets all.
  static std::vector<std::vector<int>> Pattern(const FlatNetwork& network) {
    const std::size_t images = network.images.size();
    std::vector<std::vector<std::size_t>> raysOf(images);
    for (std::size_t i = 0; i < network.rays.size(); ++i)
      raysOf[network.rays[i].image].push_back(i);
    std::vector<std::vector<int>> rows(images);
    std::vector<std::size_t> metBy(images, images);
    for (std::size_t column = 0; column < images; ++column) {
      rows[column] = {static_cast<int>(column)};
      for (const std::size_t ray : raysOf[column]) {
        const std::size_t point = network.rays[ray].point;
        if (network.points[point].isFixed) continue;
        for (std::size_t i = ray + 1; i < network.rays.size(); ++i) {
          const FlatNetwork::Ray& other = network.rays[i];
          if (other.point != point) break;
          if (other.image == column || metBy[other.image] == column) continue;
          metBy[other.image] = column;
          rows[column].push_back(static_cast<int>(other.image));
        }
      }
      std::sort(rows[column].begin(), rows[column].end());
      if (!network.estimated.empty()) rows[column].push_back(static_cast<int>(images));
    }
    if (!network.estimated.empty()) rows.push_back({static_cast<int>(images)});
    return rows;
  }

  // Before the first point: the number behind the last one stands for it.
  void Begin(PointRows& point) const {
    point.point = fNetwork.points.size();
    point.rays = std::span(fNetwork.rays).first(0);
  }

  // Fills in the next point; false behind the last one.
  bool Next(PointRows& point) const {
    const std::size_t points = fNetwork.points.size();
    point.point = point.point == points ? 0 : point.point + 1;
    if (point.point == points) return false;
    const std::size_t begin =
        static_cast<std::size_t>(point.rays.data() - fNetwork.rays.data()) + point.rays.size();
    std::size_t end = begin;
    while (end < fNetwork.rays.size() && fNetwork.rays[end].point == point.point) ++end;
    point.rays = std::span(fNetwork.rays).subspan(begin, end - begin);
    point.moves = !fNetwork.points[point.point].isFixed;
    point.rows.resize(end - begin);
    point.top.clear();
    point.blocks.clear();
    for (std::size_t i = begin; i < end; ++i) {
      ReadRows(i, point.moves, point.rows[i - begin]);
      const int image = static_cast<int>(fNetwork.rays[i].image);
      if (point.blocks.empty() || point.blocks.back() != image) point.blocks.push_back(image);
      point.top.push_back(6 * Column(point.blocks.size() - 1));
    }
    if (point.moves) FormCoupling(point);
    return true;
  }

  // A row of the Jacobian has the columns of a moving point, of a pose as far as it is not held,
  // and of the camera.
  void ReadRows(std::size_t ray, bool moves, RayRows& rows) const {
    const std::size_t pose = 6 * fNetwork.rays[ray].image;
    rows.byCamera.resize(2, fParameters);
    for (std::size_t i = 0; i < 2; ++i) {
      const auto row = Column(i);
      const double* value = fJacobian.values.data() + fJacobian.rows[2 * ray + i];
      for (Eigen::Index j = 0; j < 3; ++j) rows.byPoint(row, j) = moves ? *value++ : 0.0;
      for (std::size_t j = 0; j < 6; ++j)
        rows.byImage(row, Column(j)) = fHeld[pose + j] ? 0.0 : *value++;
      for (Eigen::Index j = 0; j < fParameters; ++j) rows.byCamera(row, j) = *value++;
    }
  }

  void FormCoupling(PointRows& point) const {
    const Eigen::Index camera = 6 * Column(point.blocks.size());
    point.w.setZero(camera + fParameters, 3);
    Eigen::Matrix3d v = Eigen::Matrix3d::Zero();
    for (std::size_t i = 0; i < point.rows.size(); ++i) {
      const RayRows& rows = point.rows[i];
      v.noalias() += rows.byPoint.transpose() * rows.byPoint;
      point.w.middleRows<6>(point.top[i]).noalias() += rows.byImage.transpose() * rows.byPoint;
      point.w.bottomRows(fParameters).noalias() += rows.byCamera.transpose() * rows.byPoint;
    }
    if (fParameters > 0) point.blocks.push_back(static_cast<int>(fCamera));
    point.inverseFactor = v.llt().matrixL().solve(Eigen::Matrix3d::Identity());
    point.y.noalias() = point.w * point.inverseFactor.transpose();
  }

  BlockView<6, 6> Diagonal(std::size_t image) { return View<6, 6>(image, 0); }
  BlockView<Dynamic, 6> CameraRow(std::size_t image) {
    return View<Dynamic, 6>(image, fReduced.Place(static_cast<int>(fCamera), image));
  }
  BlockView<Dynamic, Dynamic> CameraBlock() { return View<Dynamic, Dynamic>(fCamera, 0); }

  template <int Rows, int Columns>
  BlockView<Rows, Columns> View(std::size_t column, std::size_t place) {
    return {fReduced.Block(column, place),
            Rows == Dynamic ? fParameters : Rows,
            Columns == Dynamic ? fParameters : Columns,
            Eigen::OuterStride<>(fReduced.Stride(column))};
  }

  // Calls action(block, first row of it in W, first row of its column in W) for the blocks of the
  // reduced system in which the point has a share.
  template <typename Action>
  void ForEachBlock(const PointRows& point, const Action& action) {
    const std::size_t images = point.blocks.size() - (fParameters > 0 ? 1 : 0);
    for (std::size_t c = 0; c < images; ++c) {
      const auto column = static_cast<std::size_t>(point.blocks[c]);
      std::size_t place = 0;
      for (std::size_t r = c; r < images; ++r) {
        place = fReduced.Place(point.blocks[r], column, place);
        action(View<6, 6>(column, place), 6 * Column(r), 6 * Column(c));
      }
      if (fParameters > 0) action(CameraRow(column), 6 * Column(images), 6 * Column(c));
    }
    if (fParameters > 0) action(CameraBlock(), 6 * Column(images), 6 * Column(images));
  }

  // R = A' A - Y Y'
  void Reduce(const PointRows& point) {
    for (std::size_t i = 0; i < point.rows.size(); ++i) {
      const RayRows& rows = point.rows[i];
      const std::size_t image = point.rays[i].image;
      Diagonal(image).noalias() += rows.byImage.transpose() * rows.byImage;
      if (fParameters == 0) continue;
      CameraRow(image).noalias() += rows.byCamera.transpose() * rows.byImage;
      CameraBlock().noalias() += rows.byCamera.transpose() * rows.byCamera;
    }
    if (!point.moves) return;
    ForEachBlock(point, [&point](auto block, Eigen::Index row, Eigen::Index column) {
      using Block = decltype(block);
      constexpr int kRows = Block::RowsAtCompileTime, kColumns = Block::ColsAtCompileTime;
      block.noalias() -=
          point.y.template middleRows<kRows>(row, block.rows())
              .lazyProduct(point.y.template middleRows<kColumns>(column, block.cols()).transpose());
    });
  }

  // With the inverse Q of the reduced system and T = Q Y,
  //   Q_pp = L^-T (I + Y' T) L^-1    Q_rp = -T L^-1    r = 1 - a Q a'
  void Return(const PointRows& point, double s0, PeerAccuracy& accuracy) {
    Eigen::Matrix3d ofPoint = Eigen::Matrix3d::Zero();
    if (point.moves) {
      fT.setZero(point.y.rows(), 3);
      ForEachBlock(point, [this, &point](auto block, Eigen::Index row, Eigen::Index column) {
        using Block = decltype(block);
        constexpr int kRows = Block::RowsAtCompileTime, kColumns = Block::ColsAtCompileTime;
        fT.template middleRows<kRows>(row, block.rows()).noalias() +=
            block.lazyProduct(point.y.template middleRows<kColumns>(column, block.cols()));
        if (row == column) return;
        fT.template middleRows<kColumns>(column, block.cols()).noalias() +=
            block.transpose().lazyProduct(point.y.template middleRows<kRows>(row, block.rows()));
      });
      Eigen::Matrix3d inner = Eigen::Matrix3d::Identity();
      inner.noalias() += point.y.transpose() * fT;
      ofPoint = point.inverseFactor.transpose() * inner * point.inverseFactor;
      fT = (-fT * point.inverseFactor).eval();
    }
    for (Eigen::Index i = 0; i < 3; ++i) accuracy.points.push_back(s0 * std::sqrt(ofPoint(i, i)));
    for (std::size_t i = 0; i < point.rows.size(); ++i) {
      const RayRows& rows = point.rows[i];
      const std::size_t image = point.rays[i].image;
      // Each product of two kinds of unknowns comes twice.
      Eigen::Matrix<double, 2, 6> byImage = rows.byImage * Diagonal(image);
      ByCamera byCamera(2, fParameters);
      if (fParameters > 0) {
        byImage.noalias() += 2.0 * rows.byCamera * CameraRow(image);
        byCamera.noalias() = rows.byCamera * CameraBlock();
      }
      Eigen::Matrix<double, 2, 3> byPoint = rows.byPoint * ofPoint;
      if (point.moves) {
        byPoint.noalias() += 2.0 * rows.byImage * fT.middleRows<6>(point.top[i]);
        byPoint.noalias() += 2.0 * rows.byCamera * fT.bottomRows(fParameters);
      }
      for (Eigen::Index j = 0; j < 2; ++j)
        accuracy.redundancy.push_back(1.0 - byPoint.row(j).dot(rows.byPoint.row(j)) -
                                      byImage.row(j).dot(rows.byImage.row(j)) -
                                      byCamera.row(j).dot(rows.byCamera.row(j)));
    }
  }

  const FlatNetwork& fNetwork;
  const ceres::CRSMatrix& fJacobian;
  const std::vector<bool>& fHeld;
  Eigen::Index fParameters;
  std::size_t fCamera;  // number of the camera's block
  SparseSymmetric fReduced;
  Eigen::Matrix<double, Dynamic, 3> fT;  // of Return, kept for its memory
};

}  // namespace

PeerAccuracy ComputeAccuracy(FlatNetwork& network,
                             ceres::Problem& problem,
                             double* camera,
                             const std::vector<bool>& held,
                             double s0) {
  ceres::Problem::EvaluateOptions options;
  for (auto& point : network.points)
    if (!point.isFixed) options.parameter_blocks.push_back(point.x.data());
  for (auto& image : network.images)
    if (!problem.IsParameterBlockConstant(image.pose.data()))
      options.parameter_blocks.push_back(image.pose.data());
  if (!network.estimated.empty()) options.parameter_blocks.push_back(camera);
  ceres::CRSMatrix jacobian;
  if (!problem.Evaluate(options, nullptr, nullptr, nullptr, &jacobian))
    throw std::runtime_error("the observations cannot be evaluated");
  return PointElimination(network, jacobian, held).Run(s0);
}

}  // namespace cardo::bench
