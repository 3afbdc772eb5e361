#pragma once

#include <cstdint>

// The codes that a KlException carries.
namespace vermo::failure {

inline constexpr std::int32_t kMatrixAllocation = -1001;
inline constexpr std::int32_t kMatrixEmpty = -1002;
inline constexpr std::int32_t kMatrixIndex = -1003;
inline constexpr std::int32_t kMatrixShape = -1004;

inline constexpr std::int32_t kVectorAllocation = -2001;
inline constexpr std::int32_t kVectorEmpty = -2002;
inline constexpr std::int32_t kVectorSizes = -2005;
inline constexpr std::int32_t kVectorNorm = -2007;

inline constexpr std::int32_t kOther = -9999;  // stands for any other exception

inline constexpr std::int32_t kNoMessungen = -12011;
inline constexpr std::int32_t kLineCoordsWithPrincipalPoint = -12010;
inline constexpr std::int32_t kNoProgress = -12009;
inline constexpr std::int32_t kDoubleData = -12008;
inline constexpr std::int32_t kInternal = -12007;
inline constexpr std::int32_t kNoUnknowns = -12006;
inline constexpr std::int32_t kAbortByUser = -12005;
inline constexpr std::int32_t kS0TooLarge = -12004;
inline constexpr std::int32_t kInvalidParameter = -12003;
inline constexpr std::int32_t kNoMessungenOld = -12002;  // has a text, raised by nothing
inline constexpr std::int32_t kKiiZero = -12001;         // has a text, raised by nothing

inline constexpr std::int32_t kNegativeVariance = -13001;
inline constexpr std::int32_t kS0Apriori = -35001;
inline constexpr std::int32_t kSizesDiffer = -39004;
inline constexpr std::int32_t kSingular = -39007;
inline constexpr std::int32_t kCameraPlane = -41001;
inline constexpr std::int32_t kShortDirection = -42001;

}  // namespace vermo::failure
