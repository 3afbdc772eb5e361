#pragma once

#include "xyz_api.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>

// A job with its protocol in a folder of its own; the language of the process is German before
// and after each test.
class JobTest : public ::testing::Test {
 protected:
  JobTest() : fFolder(std::filesystem::temp_directory_path() / FolderName()) {
    std::filesystem::create_directories(fFolder);
    ProcessLanguage(1);
    fJob = XYZ_CreateJob(ProtocolFile().c_str());
  }
  ~JobTest() override {
    ProcessLanguage(1);
    XYZ_DestroyJob(fJob);
    std::error_code ignored;
    std::filesystem::remove_all(fFolder, ignored);
  }

  static void ProcessLanguage(int language) {
    void* job = XYZ_CreateJob("unused.htm");
    XYZ_SetParam(job, eXYZ_ParamLanguage, language);
    XYZ_DestroyJob(job);
  }

  [[nodiscard]] std::string Path(const std::string& name) const {
    return (fFolder / name).string();
  }
  [[nodiscard]] std::string ProtocolFile() const { return Path("protocol.htm"); }
  static std::string ReadFile(const std::string& name) {
    std::ifstream file(name, std::ios_base::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

  [[nodiscard]] int IntParam(int which) const {
    int value = -99;
    EXPECT_EQ(XYZ_GetParam(fJob, static_cast<eXYZ_Parameter>(which), &value), 0) << which;
    return value;
  }
  [[nodiscard]] double DoubleParam(int which) const {
    double value = -99.0;
    EXPECT_EQ(XYZ_GetParam(fJob, static_cast<eXYZ_Parameter>(which), &value), 0) << which;
    return value;
  }
  int Set(int which, int value) {
    return XYZ_SetParam(fJob, static_cast<eXYZ_Parameter>(which), value);
  }
  int Set(int which, double value) {
    return XYZ_SetParam(fJob, static_cast<eXYZ_Parameter>(which), value);
  }
  [[nodiscard]] int IntResult(int which) const {
    int value = -99;
    EXPECT_EQ(XYZ_GetResult(fJob, static_cast<eXYZ_Result>(which), &value), 0) << which;
    return value;
  }
  [[nodiscard]] double DoubleResult(int which) const {
    double value = -99.0;
    EXPECT_EQ(XYZ_GetResult(fJob, static_cast<eXYZ_Result>(which), &value), 0) << which;
    return value;
  }

  void* fJob = nullptr;

 private:
  static std::string FolderName() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("cardo_api_") + info->test_suite_name() + "_" + info->name() + "_" +
           std::to_string(::getpid());
  }

  std::filesystem::path fFolder;
};

// Records with sensible values.
inline sXYZ_ObjectCoord MakePoint(int id, double x, double y, double z, int flags = 0x01) {
  sXYZ_ObjectCoord p{};
  p.Id = id;
  p.X = x;
  p.Y = y;
  p.Z = z;
  p.Flags = static_cast<std::uint16_t>(flags);
  p.ReferenceEor = -1;
  return p;
}

inline sXYZ_InteriorOrient MakeCamera(int id, double ck = -30.0, int flags = 0x11) {
  sXYZ_InteriorOrient c{};
  c.Id = id;
  c.Ck = ck;
  c.Flags = static_cast<std::uint16_t>(flags);
  return c;
}

inline sXYZ_ExteriorOrient2 MakeImage(
    int id, int camera, double x, double y, double z, int flags = 0x11) {
  sXYZ_ExteriorOrient2 e{};
  e.Id = id;
  e.IorId = camera;
  e.ProjectionId = -1;
  e.X0 = x;
  e.Y0 = y;
  e.Z0 = z;
  e.Format = 3;
  e.Rotation[0] = e.Rotation[4] = e.Rotation[8] = 1.0;
  e.Flags = static_cast<std::uint16_t>(flags);
  return e;
}

inline sXYZ_PictureCoord MakeImagePoint(int point, int image, double x, double y) {
  sXYZ_PictureCoord o{};
  o.PointId = point;
  o.EorId = image;
  o.X = x;
  o.Y = y;
  o.Sx = o.Sy = 0.005;
  o.Flags = 0x01;
  return o;
}

inline sXYZ_MeasuredObjectCoord MakeMeasured(
    int point, double x, double y, double z, double sigma = 0.005) {
  sXYZ_MeasuredObjectCoord o{};
  o.PointId = point;
  o.X = x;
  o.Y = y;
  o.Z = z;
  o.Sx = o.Sy = o.Sz = sigma;
  o.ReferenceEor = -1;
  o.Flags = 0x01;
  return o;
}

inline sXYZ_Distance MakeDistance(int first, int second, double s, double sigma = 0.005) {
  sXYZ_Distance o{};
  o.Point1 = first;
  o.Point2 = second;
  o.S = s;
  o.Sigma = sigma;
  o.Flags = 0x01;
  return o;
}
