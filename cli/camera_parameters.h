#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <xyz_api.h>

namespace cardo {

// A parameter of a camera: its column, its place in the record and its bit of ParameterMask.
struct CameraParameter {
  std::string_view name;
  double sXYZ_InteriorOrient::*value;
  std::uint32_t bit;
};

// In the order of sXYZ_InteriorOrient::Sigma and Correlation.
inline constexpr std::array<CameraParameter, 12> kCameraParameters = {{
    {"ck", &sXYZ_InteriorOrient::Ck, 0x1},
    {"xh", &sXYZ_InteriorOrient::Xh, 0x2},
    {"yh", &sXYZ_InteriorOrient::Yh, 0x4},
    {"a1", &sXYZ_InteriorOrient::A1, 0x10},
    {"a2", &sXYZ_InteriorOrient::A2, 0x20},
    {"a3", &sXYZ_InteriorOrient::A3, 0x40},
    {"b1", &sXYZ_InteriorOrient::B1, 0x100},
    {"b2", &sXYZ_InteriorOrient::B2, 0x200},
    {"c1", &sXYZ_InteriorOrient::C1, 0x400},
    {"c2", &sXYZ_InteriorOrient::C2, 0x800},
    {"az1", &sXYZ_InteriorOrient::AZ1, 0x1000},
    {"az2", &sXYZ_InteriorOrient::AZ2, 0x2000},
}};

}  // namespace cardo
