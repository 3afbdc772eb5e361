#pragma once

namespace vermo {

// Which tables a network has, for the list of contents.
struct ProtocolContents {
  bool cameras = false;
  bool projections = false;
  bool exteriorOrientations = false;
  bool relativeOrientations = false;
  bool objectPoints = false;
  bool lines = false;
  bool planes = false;
  bool pointOnLine = false;
  bool pointOnPlane = false;
  bool imageCoordinates = false;
  bool lineCoordinates = false;
  bool measuredObjectPoints = false;
  bool distances = false;
};

}  // namespace vermo
