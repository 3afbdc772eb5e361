#include "camera_parameters.h"
#include "csv_writer.h"
#include "nearest_name.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeCamerasTable();

namespace {

std::vector<std::string> ParameterNamesOfCamera() {
  std::vector<std::string> names;
  names.reserve(std::size(kCameraParameters));
  for (const CameraParameter& parameter : kCameraParameters) names.emplace_back(parameter.name);
  return names;
}

// Names separated by blanks into bits.
std::string ReadEstimate(std::string_view text, sXYZ_InteriorOrient& camera) {
  const std::vector<std::string> names = ParameterNamesOfCamera();
  std::uint32_t mask = 0;
  while (true) {
    const std::size_t start = text.find_first_not_of(' ');
    if (start == std::string_view::npos) break;
    text.remove_prefix(start);
    const std::string_view name = text.substr(0, text.find(' '));
    text.remove_prefix(name.size());
    bool known = false;
    for (const CameraParameter& parameter : kCameraParameters) {
      if (parameter.name != name) continue;
      mask |= parameter.bit;
      known = true;
    }
    if (!known) {
      return fmt::format("estimate must be names of camera parameters, {} is none{}",
                         Quoted(name),
                         Suggestion(name, names));
    }
  }
  camera.ParameterMask = mask;
  return {};
}

std::string EstimateText(std::uint32_t mask) {
  std::string text;
  for (const CameraParameter& parameter : kCameraParameters) {
    if ((mask & parameter.bit) == 0) continue;
    if (!text.empty()) text += ' ';
    text += parameter.name;
  }
  return text;
}

class CamerasTable final : public RecordTable<sXYZ_InteriorOrient> {
 public:
  CamerasTable() {
    auto& columns = MutableColumns();
    columns.Id("id", &sXYZ_InteriorOrient::Id);
    for (const CameraParameter& parameter : kCameraParameters) {
      const bool isCk = parameter.name == "ck";
      columns.Real(std::string(parameter.name),
                   parameter.value,
                   isCk ? ColumnNeed::kRequired : ColumnNeed::kOptional,
                   isCk ? RealRange::kNotZero : RealRange::kAny);
    }
    columns.Real("r0", &sXYZ_InteriorOrient::R0, ColumnNeed::kOptional, RealRange::kNotNegative)
        .Custom("estimate", ColumnNeed::kOptional, "none", ReadEstimate)
        .Flag("fixed", &sXYZ_InteriorOrient::Flags, kFixed, false)
        .Flag("active", &sXYZ_InteriorOrient::Flags, kActive, true)
        .Tag();
    for (const CameraParameter& parameter : kCameraParameters) {
      columns.Results({fmt::format("s_{}", parameter.name)});
    }
  }

  [[nodiscard]] std::string Name() const override { return "cameras"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id"});
    for (const CameraParameter& parameter : kCameraParameters) writer.Text(parameter.name);
    writer.Names({"r0", "estimate", "fixed", "active", "tag"});
    for (const CameraParameter& parameter : kCameraParameters) {
      writer.Text(fmt::format("s_{}", parameter.name));
    }
    writer.EndRecord();
    auto camera = std::make_unique<sXYZ_InteriorOrient>();
    for (int i = 0; i < XYZ_GetInteriorOrientCnt(context.job); ++i) {
      if (XYZ_GetInteriorOrientAt(context.job, i, camera.get()) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(camera->Id);
      for (const CameraParameter& parameter : kCameraParameters) {
        writer.Real((*camera).*parameter.value);
      }
      writer.Real(camera->R0)
          .Text(EstimateText(input.mask))
          .Flag(input.isFixed)
          .Flag((camera->Flags & kActive) != 0)
          .Integer(input.tag);
      for (const double sigma : camera->Sigma) writer.Real(sigma);
      writer.EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_InteriorOrient& camera, RowContext& row) override {
    row.TakeId(Name(), "id", camera.Id, (camera.Flags & kActive) != 0);
    if (row.HasMistake()) return eXYZ_Ok;
    fInputs.push_back({camera.ParameterMask, camera.Tag, (camera.Flags & kFixed) != 0});
    return XYZ_SetInteriorOrientation(row.Context().job, &camera);
  }

 private:
  // The library gives neither back for a camera of which nothing is estimated.
  struct Input {
    std::uint32_t mask;
    std::uint16_t tag;
    bool isFixed;
  };

  std::vector<Input> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakeCamerasTable() { return std::make_unique<CamerasTable>(); }

}  // namespace cardo
