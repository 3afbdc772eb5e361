#include "datum_check.h"
#include "summary.h"

#include <nlohmann/json.hpp>

namespace cardo {
namespace {

using Json = nlohmann::ordered_json;

Json OfCamera(const CameraSummary& camera) {
  Json parameters = Json::object();
  for (const CameraParameterSummary& parameter : camera.parameters) {
    Json& entry = parameters[parameter.name];
    entry["value"] = parameter.value;
    entry["estimated"] = parameter.isEstimated;
    if (parameter.isEstimated) entry["standard_deviation"] = parameter.sigma;
  }
  Json correlations = Json::array();
  for (const CorrelationSummary& correlation : camera.correlations) {
    correlations.push_back({{"parameters", {correlation.first, correlation.second}},
                            {"correlation", correlation.value}});
  }
  return {{"id", camera.id},
          {"parameters", std::move(parameters)},
          {"correlations", std::move(correlations)}};
}

Json OfImage(const ImageSummary& image) {
  Json json = {{"id", image.id}, {"rays", image.rays}, {"outliers", image.outliers}};
  if (image.rays > 0) {
    json["rms_vx"] = image.rmsX;
    json["rms_vy"] = image.rmsY;
    json["largest_residual"] = {{"value", image.largest}, {"point", image.largestPoint}};
  }
  return json;
}

Json OfPoint(const PointSummary& point) {
  return {{"id", point.id},
          {"rays", point.rays},
          {"s_x", point.sx},
          {"s_y", point.sy},
          {"s_z", point.sz}};
}

Json OfRejected(const RejectedObservation& observation) {
  Json json = {{"table", observation.table}, {"row", observation.row}};
  for (const auto& [name, id] : observation.ids) json[std::string(name)] = id;
  json["active"] = observation.isActive;
  json["residuals"] = observation.residuals;
  json["test_values"] = observation.testValues;
  return json;
}

Json OfGroups(const GroupIds& groups) {
  Json json = Json::object();
  for (std::size_t kind = 0; kind < groups.size(); ++kind) {
    json[std::string(kGroupKinds[kind])] = groups[kind];
  }
  return json;
}

}  // namespace

std::string SummaryJson(const Summary& summary) {
  Json json;
  json["title"] = summary.title;
  json["length_unit"] = summary.lengthUnit;
  json["image_unit"] = summary.imageUnit;
  json["s0_apriori"] = summary.s0Apriori;
  json["s0"] = summary.s0;
  json["observations"] = summary.observations;
  json["unknowns"] = summary.unknowns;
  json["constraints"] = summary.constraints;
  json["redundancy"] = summary.redundancy;
  json["redundancy_sum"] = summary.redundancySum;
  json["converged"] = summary.converged;
  json["iterations"] = summary.iterations;
  json["max_iterations"] = summary.maxIterations;
  json["norm"] = summary.norm;
  json["outliers"] = summary.outliers;
  json["outlier_rounds"] = summary.blunderRounds;
  json["critical_value"] = summary.criticalValue;
  json["elapsed_seconds"] = summary.seconds;
  json["active"] = {{"cameras", summary.activeCameras},
                    {"images", summary.activeImages},
                    {"points", summary.activePoints}};
  json["records"] = {{"cameras", summary.cameras},
                     {"images", summary.images},
                     {"points", summary.points},
                     {"image_coordinates", summary.imageCoordinates},
                     {"unused_image_coordinates", summary.unusedImageCoordinates}};
  json["cameras"] = Json::array();
  for (const CameraSummary& camera : summary.cameraList)
    json["cameras"].push_back(OfCamera(camera));
  json["images"] = Json::array();
  for (const ImageSummary& image : summary.imageList) json["images"].push_back(OfImage(image));
  const PointsSummary& points = summary.pointSummary;
  json["points"] = {{"active", points.active},
                    {"fixed", points.fixed},
                    {"estimated", points.estimated},
                    {"rms", {{"s_x", points.rmsSx}, {"s_y", points.rmsSy}, {"s_z", points.rmsSz}}},
                    {"worst", Json::array()}};
  for (const PointSummary& point : points.worst) json["points"]["worst"].push_back(OfPoint(point));
  json["rejected"] = Json::array();
  for (const RejectedObservation& observation : summary.rejected)
    json["rejected"].push_back(OfRejected(observation));
  json["warnings"] = Json::array();
  for (const RunWarning& warning : summary.warnings) {
    json["warnings"].push_back(
        {{"code", warning.code}, {"text", warning.text}, {"object", warning.object}});
  }
  json["more_warnings"] = summary.cutWarnings;
  json["datum_check"] = {{"verdict", summary.datumVerdict},
                         {"text", DatumVerdict(summary.datumVerdict)}};
  json["lost_groups"] = OfGroups(summary.lostGroups);
  return json.dump(2) + '\n';
}

}  // namespace cardo
