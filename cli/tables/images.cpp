#include "csv_writer.h"
#include "image_records.h"
#include "image_rotation.h"
#include "record_flags.h"
#include "record_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <memory>
#include <span>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeImagesTable();

namespace {

using Image = sXYZ_ExteriorOrient2;

struct Word {
  std::string_view text;
  std::uint32_t code;
};

// The first word of a code is the one that is written.
constexpr Word kTypeWords[] = {{"omega-phi-kappa", kOmegaPhiKappa},
                               {"1", kOmegaPhiKappa},
                               {"arc", kArc},
                               {"2", kArc},
                               {"matrix", kMatrix},
                               {"3", kMatrix},
                               {"ttg", kTtg},
                               {"4", kTtg}};
constexpr Word kUnitWords[] = {{"degrees", kDegrees}, {"gon", kGon}, {"radians", kRadians}};

// The columns of a rotation depend on its type.
constexpr std::array<std::string_view, 3> kOmegaColumns = {"omega", "phi", "kappa"};
constexpr std::array<std::string_view, 3> kAlphaColumns = {"alpha", "beta", "gamma"};
constexpr std::array<std::string_view, 9> kMatrixColumns = {
    "r11", "r12", "r13", "r21", "r22", "r23", "r31", "r32", "r33"};
constexpr std::array<std::span<const std::string_view>, 3> kRotationColumns = {
    std::span<const std::string_view>(kOmegaColumns),
    std::span<const std::string_view>(kAlphaColumns),
    std::span<const std::string_view>(kMatrixColumns)};

std::size_t ColumnGroup(std::uint32_t type) {
  return type == kOmegaPhiKappa ? 0 : type == kMatrix ? 2 : 1;
}

std::string ReadWord(std::string_view name,
                     std::string_view text,
                     std::span<const Word> words,
                     std::uint32_t keep,
                     std::uint32_t& format) {
  std::string known;
  for (const Word& word : words) {
    if (word.text == text) {
      format = (format & keep) | word.code;
      return {};
    }
    known += fmt::format("{}{}", known.empty() ? "" : ", ", word.text);
  }
  return fmt::format("{} must be one of {}", name, known);
}

std::string_view WordOf(std::span<const Word> words, std::uint32_t code) {
  for (const Word& word : words) {
    if (word.code == code) return word.text;
  }
  return "";
}

class ImagesTable final : public RecordTable<Image> {
 public:
  ImagesTable() {
    auto& columns = MutableColumns();
    columns.Id("id", &Image::Id)
        .Reference("camera", &Image::IorId, {"cameras"})
        .Real("x0", &Image::X0)
        .Real("y0", &Image::Y0)
        .Real("z0", &Image::Z0)
        .Custom("rotation_type",
                ColumnNeed::kOptional,
                "omega-phi-kappa",
                [](std::string_view text, Image& image) {
                  return ReadWord("rotation_type", text, kTypeWords, 0xFF00U, image.Format);
                })
        .Custom("unit", ColumnNeed::kOptional, "degrees", [](std::string_view text, Image& image) {
          return ReadWord("unit", text, kUnitWords, 0xFFU, image.Format);
        });
    for (const auto& group : kRotationColumns) {
      for (std::size_t i = 0; i < group.size(); ++i) {
        const std::string name(group[i]);
        columns.Custom(name, ColumnNeed::kOptional, "", [name, i](auto text, Image& image) {
          return ReadReal(name, text, RealRange::kAny, image.Rotation[i]);
        });
      }
    }
    columns.Reference("projection", &Image::ProjectionId, {"projections"}, ColumnNeed::kOptional)
        .Flag("fixed", &Image::Flags, kFixed, false)
        .Flag("active", &Image::Flags, kActive, true)
        .Tag()
        .Results({"s_x0", "s_y0", "s_z0", "s_rx", "s_ry", "s_rz"});
    for (const auto& group : kRotationColumns) {
      for (const std::string_view name : group) columns.Results({fmt::format("s_{}", name)});
    }
    columns.Results({"rms_vx", "rms_vy", "rays", "outliers"});
    columns.Defaults().Format = kOmegaPhiKappa | kDegrees;
  }

  [[nodiscard]] std::string Name() const override { return "images"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    const std::vector<Image> images = ReadBack(context);
    std::array<bool, 3> hasGroup{};
    for (const Image& image : images) hasGroup[ColumnGroup(TypeOf(image.Format))] = true;

    writer.Names({"id", "camera", "x0", "y0", "z0", "rotation_type", "unit"});
    WriteRotationNames(writer, hasGroup, "");
    writer.Names({"projection", "fixed", "active", "tag"})
        .Names({"s_x0", "s_y0", "s_z0", "s_rx", "s_ry", "s_rz"});
    WriteRotationNames(writer, hasGroup, "s_");
    writer.Names({"rms_vx", "rms_vy", "rays", "outliers"}).EndRecord();

    for (std::size_t i = 0; i < images.size(); ++i) {
      const Image& image = images[i];
      const std::uint32_t type = TypeOf(image.Format);
      writer.Integer(image.Id)
          .Integer(image.IorId)
          .Real(image.X0)
          .Real(image.Y0)
          .Real(image.Z0)
          .Text(WordOf(kTypeWords, type))
          .Text(WordOf(kUnitWords, UnitOf(image.Format)));
      WriteRotation(writer, hasGroup, type, image.Rotation);
      image.ProjectionId < 0 ? writer.Empty() : writer.Integer(image.ProjectionId);
      writer.Flag((image.Flags & kFixed) != 0)
          .Flag((image.Flags & kActive) != 0)
          .Integer(fInputs[i].Tag);
      for (const double sigma : image.SPosition) writer.Real(sigma);
      for (const double sigma : image.SRotation) writer.Real(sigma);
      WriteRotation(writer, hasGroup, type, image.SMatrix);
      writer.Real(image.RmsVx)
          .Real(image.RmsVy)
          .Integer(image.RayCount)
          .Integer(image.BlunderCount)
          .EndRecord();
    }
  }

 protected:
  void OnHeader(const CsvRow& row, const TableHeader& header, const ReadContext& context) override {
    const auto has = [&header](std::size_t group) {
      const auto& names = kRotationColumns[group];
      return std::any_of(
          names.begin(), names.end(), [&](std::string_view name) { return header.Has(name); });
    };
    fTypeIsKnown = false;
    if (header.Has("rotation_type")) return;
    const bool omega = has(0);
    const bool alpha = has(1);
    const bool matrix = has(2);
    if (alpha || (omega && matrix)) {
      context.diagnostics.Add(row.PlaceOf(row.Size()),
                              "expected the column \"rotation_type\" as well: the rotation columns "
                              "leave open which type is meant");
    } else if (!omega && !matrix) {
      context.diagnostics.Add(row.PlaceOf(row.Size()),
                              "expected columns of a rotation as well: omega, phi, kappa or r11 "
                              "to r33, found none");
    }
    MutableColumns().Defaults().Format = (matrix ? kMatrix : kOmegaPhiKappa) | kDegrees;
    fTypeIsKnown = true;
  }

  int Accept(Image& image, RowContext& row) override {
    if (!fTypeIsKnown && row.Field("rotation_type").empty()) {
      row.Mistake("rotation_type", "rotation_type must be given where the column is there");
    }
    const std::size_t used = ColumnGroup(TypeOf(image.Format));
    for (std::size_t group = 0; group < kRotationColumns.size(); ++group) {
      CheckRotationFields(row, group, group == used, TypeOf(image.Format));
    }
    row.TakeId(Name(), "id", image.Id, (image.Flags & kActive) != 0);
    if (row.HasMistake()) return eXYZ_Ok;
    fInputs.push_back(image);
    const int status = XYZ_SetExteriorOrientation2(row.Context().job, &image);
    if (status == eXYZ_RotationFailed) {
      row.Mistake("r11", "r11 to r33 must be the rows of a rotation matrix");
      return eXYZ_Ok;
    }
    return status;
  }

 private:
  // Angles must give the library's own matrix again, but for the rounding of its constants.
  static constexpr double kSameRotation = 1e-9;

  static void CheckRotationFields(RowContext& row,
                                  std::size_t group,
                                  bool isUsed,
                                  std::uint32_t type) {
    for (const std::string_view name : kRotationColumns[group]) {
      const bool isEmpty = row.Field(name).empty();
      if (isUsed && isEmpty) {
        row.Mistake(
            name,
            fmt::format(
                "{} must be a number for rotation type {}", name, WordOf(kTypeWords, type)));
      } else if (!isUsed && !isEmpty) {
        row.Mistake(
            name,
            fmt::format("{} must be empty for rotation type {}", name, WordOf(kTypeWords, type)));
      }
    }
  }

  static void WriteRotationNames(CsvWriter& writer,
                                 const std::array<bool, 3>& hasGroup,
                                 std::string_view prefix) {
    for (std::size_t group = 0; group < kRotationColumns.size(); ++group) {
      if (!hasGroup[group]) continue;
      for (const std::string_view name : kRotationColumns[group]) {
        writer.Text(fmt::format("{}{}", prefix, name));
      }
    }
  }

  static void WriteRotation(CsvWriter& writer,
                            const std::array<bool, 3>& hasGroup,
                            std::uint32_t type,
                            const double (&values)[9]) {
    for (std::size_t group = 0; group < kRotationColumns.size(); ++group) {
      if (!hasGroup[group]) continue;
      const std::size_t size = kRotationColumns[group].size();
      for (std::size_t i = 0; i < size; ++i) {
        ColumnGroup(type) == group ? writer.Real(values[i]) : writer.Empty();
      }
    }
  }

  // The images with their results, in the format that the job asks for where its angles say the
  // same as the matrix, as matrices elsewhere: what is written must mean what was computed. A
  // fixed image keeps the rotation it was given.
  [[nodiscard]] std::vector<Image> ReadBack(const WriteContext& context) const {
    int format = 0;
    XYZ_GetParam(context.job, eXYZ_ParamEorFormat, &format);
    std::vector<Image> images = ReadImagesAsMatrices(context.job);
    for (std::size_t i = 0; i < images.size(); ++i) {
      context.poll();
      const Image& input = fInputs[i];
      Image& image = images[i];
      const std::uint32_t wanted = format == 0 ? input.Format : static_cast<std::uint32_t>(format);
      if (TypeOf(wanted) == kMatrix) continue;
      if ((input.Flags & kFixed) != 0 && wanted == input.Format) {
        image.Format = input.Format;
        std::copy(std::begin(input.Rotation), std::end(input.Rotation), image.Rotation);
        continue;
      }
      Image angles{};
      if (XYZ_GetExteriorOrientAt(context.job, static_cast<int>(i), &angles) != eXYZ_Ok) continue;
      Matrix3 matrix;
      std::copy(std::begin(image.Rotation), std::end(image.Rotation), matrix.begin());
      const Matrix3 ofAngles = RotationFromAngles(angles.Format, angles.Rotation);
      if (LargestDifference(matrix, ofAngles) <= kSameRotation) image = angles;
    }
    return images;
  }

  bool fTypeIsKnown = false;
  std::vector<Image> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakeImagesTable() { return std::make_unique<ImagesTable>(); }

}  // namespace cardo
