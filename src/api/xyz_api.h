// Cardo Bundle: photogrammetric bundle block adjustment, the exported interface.
//
// Order of calls:
//   XYZ_CreateJob, callbacks, XYZ_SetParam, records (XYZ_Set...), XYZ_CalcBundle,
//   XYZ_GetResult and XYZ_Get...At, XYZ_DestroyJob.
//
// Conventions
//   - A job handle is opaque. Only null is recognised as wrong; a destroyed or
//     foreign pointer is undefined behaviour. A job is used by one thread at a
//     time, callbacks run on the thread that called XYZ_CalcBundle. Jobs are
//     independent of each other but for the process-wide language (parameter 11).
//   - One run is meant per job: a second XYZ_CalcBundle on the same job would find
//     every link between observations and groups twice.
//   - Lengths are in one object unit and one image unit of the caller's choice,
//     angles inside the library in radians. The camera looks along its z axis, and
//     the sign of the principal distance decides on which side of the projection
//     centre the image lies: x = Ck X / Z, y = Ck Y / Z in the camera frame.
//   - Residuals are computed minus measured.
//   - Records are copied in; nothing of the caller's is kept but the two callback
//     pointers and their user data. Out fields are ignored by the set functions.
//   - "in" fields are read by the set function, "out" fields are written by the
//     read function. A read writes every field of the record.
//   - Functions stop exceptions only where their comment says so. All others let
//     std::bad_alloc leave when memory is exhausted; the job is then as it was before the call,
//     and the call may be repeated.
//   - A protocol that cannot be opened or written disturbs nothing: the run goes on, the protocol
//     function receives everything, and the file keeps what found room.
#ifndef CARDO_BUNDLE_XYZ_API_H
#define CARDO_BUNDLE_XYZ_API_H

#include <cstddef>
#include <cstdint>

#if defined(_WIN32) && defined(CARDO_BUNDLE_BUILDING_SHARED)
#define XYZ_API __declspec(dllexport)
#elif defined(__GNUC__)
#define XYZ_API __attribute__((visibility("default")))
#else
#define XYZ_API
#endif

// ---------------------------------------------------------------------------
// What a caller must catch
// ---------------------------------------------------------------------------

namespace vermo {

// The one failure the library throws on purpose: a signed 32-bit code, negative.
// It leaves the library only through XYZ_SetParam with parameter 10 (code -35001).
// Its type is exported, so a caller in another module can catch it by type.
class XYZ_API KlException {
 public:
  explicit KlException(std::int32_t code) noexcept : fCode(code) {}
  [[nodiscard]] std::int32_t GetCode() const noexcept { return fCode; }

 private:
  std::int32_t fCode;
};

}  // namespace vermo

// ---------------------------------------------------------------------------
// Enumerations
// ---------------------------------------------------------------------------

// What an exported function of result type int answers, but for the ...Cnt
// functions, which answer counts.
enum eXYZ_Status : int {
  eXYZ_Ok = 0,
  // XYZ_SetExteriorOrientation2: the matrix could not be orthonormalised;
  // XYZ_GetExteriorOrientAt: the rotation or its accuracy has no angles.
  eXYZ_RotationFailed = 4,
  // A value that the parameter does not allow; an unknown rotation type, or one
  // that needs an angle unit without one.
  eXYZ_InvalidValue = 6,
  eXYZ_IndexOutOfRange = 7,
  // The run failed in a way without a status of its own, or was cancelled.
  eXYZ_CalcFailed = 8,
  eXYZ_NoOperation = 10,
  eXYZ_NullJobOnDestroy = 11,
  eXYZ_NullPointer = 12,
  // The selector is unknown or belongs to the other value type.
  eXYZ_UnknownSelector = 13,
  eXYZ_CheckFailed = 14,
  eXYZ_ProtocolFileRejected = 16,
  // An a-priori standard deviation is zero, negative or not a number.
  eXYZ_InvalidSigma = 17,
  eXYZ_DuplicateId = 18,
  eXYZ_InvalidLine = 19,
  eXYZ_NoProgress = 20,
  eXYZ_LineCoordsWithPrincipalPoint = 21,
  eXYZ_InvalidPlane = 22,
  // The normal equations are singular: a pivot is below the limit.
  eXYZ_SingularSystem = 23
};

// Selectors of XYZ_SetParam and XYZ_GetParam. Each belongs to one value type.
enum eXYZ_Parameter : int {
  // double, 0.00032: an iteration has converged when both change measures,
  // relative to S0, are below it (the peak below 100 times it).
  eXYZ_ParamConvergenceLimit = 1,
  // double, 1e10: the largest S0 accepted.
  eXYZ_ParamS0Limit = 2,
  // int, 200: largest number of iterations, compared as unsigned; 0 skips them.
  eXYZ_ParamMaxIterations = 3,
  // int, 0: free-network datum. 0x700 translation, 0x3800 rotation, 0x4000 scale;
  // a group of three bits is all or nothing (status 6).
  eXYZ_ParamDatum = 4,
  // int, 2: 0 outlier test off, 1 by redundancy, 2 by inner reliability.
  eXYZ_ParamBlunderTest = 5,
  // int, 1: solvability check, 0 off, anything else on.
  eXYZ_ParamSolvabilityCheck = 6,
  // double, 1 and 4: dynamic range of the outlier threshold, at most 1000 each.
  eXYZ_ParamDynamicLower = 7,
  eXYZ_ParamDynamicUpper = 8,
  // double, 0.8: damping of the outlier threshold, clamped into 0 to 1.
  eXYZ_ParamDamping = 9,
  // double, 0.005: a-priori standard deviation of unit weight, above 0. Anything
  // else throws KlException -35001.
  eXYZ_ParamS0Apriori = 10,
  // int: 1 German (start value), 2 English. One setting of the whole process, whichever job it is
  // set through. It is read whenever a text is made, and may be set and read on any thread at any
  // time. It changes no number; but the protocol of a run that goes on meanwhile may then speak
  // both languages. Set it before the threads start for protocols of one language.
  eXYZ_ParamLanguage = 11,
  // double, 1e-5: S0 below it counts as zero.
  eXYZ_ParamS0Floor = 12,
  // int, 0: nonzero leaves the projections out of the protocol.
  eXYZ_ParamHideProjections = 15,
  // int, 0: smallest number of rays of an object point; 0 switches the rule off.
  eXYZ_ParamMinRays = 16,
  // double, 0.523599 radians: an image coordinate whose ray is off by more at the
  // start of the run is marked as outlier.
  eXYZ_ParamAngleLimit = 17,
  // int, 0: rotation type and unit of all images on read and in the protocol,
  // coded as sXYZ_ExteriorOrient2::Format; 0 lets each image use its own.
  eXYZ_ParamEorFormat = 18,
  // int, 5 and double, 0.5: within so many iterations S0 or the mean change must
  // fall below this ratio.
  eXYZ_ParamProgressWindow = 19,
  eXYZ_ParamProgressTolerance = 20,
  // int, 1: pivot search of the factorisation. Set and read do their work and
  // answer 13 all the same.
  eXYZ_ParamPivotSearch = 21
};

// Selectors of XYZ_GetResult. Before a run all read 0 but the counts of active cameras, images and
// points, which are taken when they are asked for.
enum eXYZ_Result : int {
  eXYZ_ResultS0 = 0,                // double: a-posteriori S0
  eXYZ_ResultBlunderTestValue = 1,  // double: critical value of the last outlier test
  eXYZ_ResultBlunderCount = 2,      // int: outliers at the end of the run
  eXYZ_ResultActiveIors = 3,        // int: active cameras
  eXYZ_ResultActiveEors = 4,        // int: active images
  eXYZ_ResultActiveObkos = 5,       // int: active object points
  eXYZ_ResultUnknowns = 6,          // int: u, of the last system
  eXYZ_ResultObservations = 7,      // int: n, observation components
  eXYZ_ResultConstraints = 8,       // int: b, constraint equations
  eXYZ_ResultRedundancy = 9,        // int: n - u + b
  eXYZ_ResultStartTime = 10,        // int: low 32 bits of the calendar time of the start
  eXYZ_ResultEndTime = 11,          // int: and of the end
  eXYZ_ResultNorm = 12,             // double: mean change of the last solution
  eXYZ_ResultRedundancyValue = 13   // double: after a run, the sum of the redundancy numbers
};

// ---------------------------------------------------------------------------
// Records. Offsets and sizes are part of the interface.
//   Flags of an unknown group   0x01 active, 0x10 fixed (no unknowns)
//   Flags of an observation     0x01 active, 0x10 outlier, 0x20 protected from
//                               the outlier test
//   Tag                         in: 0 none, n is printed as n - 1 beside the item;
//                               out: always 0
// ---------------------------------------------------------------------------

// Handed to the progress function once per iteration; valid during the call.
struct sXYZ_CBProgressInfo {
  std::int32_t Iteration;         // running number of the iteration, from 1
  std::int32_t BlunderCount;      // observations over the threshold of the last outlier test
  std::int32_t UnknownCount;      // u of the current system
  std::int32_t ObservationCount;  // n, observation components
  double Norm;                    // mean change of this solution
  double S0;                      // a-posteriori S0 of this iteration
};
static_assert(sizeof(sXYZ_CBProgressInfo) == 32 && offsetof(sXYZ_CBProgressInfo, Iteration) == 0 &&
              offsetof(sXYZ_CBProgressInfo, BlunderCount) == 4 &&
              offsetof(sXYZ_CBProgressInfo, UnknownCount) == 8 &&
              offsetof(sXYZ_CBProgressInfo, ObservationCount) == 12 &&
              offsetof(sXYZ_CBProgressInfo, Norm) == 16 && offsetof(sXYZ_CBProgressInfo, S0) == 24);

// Version of the library. Name is a constant text that lives as long as the process.
struct gXYZ_sVersion {
  std::int32_t Major;
  std::int32_t Minor;
  std::int32_t Patch;
  const char* Name;
};
static_assert(offsetof(gXYZ_sVersion, Major) == 0 && offsetof(gXYZ_sVersion, Minor) == 4 &&
              offsetof(gXYZ_sVersion, Patch) == 8 && offsetof(gXYZ_sVersion, Name) == 16);

// An object point.
struct sXYZ_ObjectCoord {
  double X, Y, Z;             // in, out: coordinates, object units; in: approximate values
  double Sx, Sy, Sz;          // out: standard deviations, object units; 0 for a fixed point
  std::int32_t Id;            // in, out: point id, key of the network
  std::int32_t RayCount;      // out: active image coordinates on the point that are no outliers
  std::int32_t BlunderCount;  // out: image coordinates on the point marked as outlier
  std::uint16_t Flags;        // in, out
  std::uint16_t Tag;          // in
  std::uint32_t PointFlags;   // in, out: 0x1 datum point (read back only while the point is
                              // active); in: 0x2 exempt from the ray rule (parameter 16)
  std::int32_t ReferenceEor;  // in, out: image in whose frame the point is given, -1 none; on
                              // read -1 unless a run has linked it
};
static_assert(sizeof(sXYZ_ObjectCoord) == 72 && offsetof(sXYZ_ObjectCoord, X) == 0 &&
              offsetof(sXYZ_ObjectCoord, Sx) == 24 && offsetof(sXYZ_ObjectCoord, Id) == 48 &&
              offsetof(sXYZ_ObjectCoord, RayCount) == 52 &&
              offsetof(sXYZ_ObjectCoord, BlunderCount) == 56 &&
              offsetof(sXYZ_ObjectCoord, Flags) == 60 && offsetof(sXYZ_ObjectCoord, Tag) == 62 &&
              offsetof(sXYZ_ObjectCoord, PointFlags) == 64 &&
              offsetof(sXYZ_ObjectCoord, ReferenceEor) == 68);

// An image: projection centre and rotation, x object = R x camera + centre.
//   Format   low byte: rotation type 1 omega, phi, kappa ("air"), 2 ("arc"), 3 matrix,
//            4 ("ttg"); second byte: angle unit 0x100 radians, 0x200 gon, 0x400 degrees
struct sXYZ_ExteriorOrient2 {
  double X0, Y0, Z0;          // in, out: projection centre, object units
  double Rotation[9];         // in, out: type 3 the matrix by rows; otherwise three angles in the
                              // unit of Format, the others 0
  double SPosition[3];        // out: standard deviations of the centre, object units
  double SRotation[3];        // out: of the rotations about the object axes, radians
  double SMatrix[9];          // out: type 3 of the matrix elements, as if the rotations of
                              // SRotation were independent; otherwise of the three angles in
                              // the unit of Format
  double RmsVx, RmsVy;        // out: RMS residuals of the image's own rays, image units
  std::int32_t Id;            // in, out: image id, key of the network
  std::int32_t IorId;         // in, out: id of the camera
  std::int32_t RayCount;      // out: active image coordinates that are no outliers
  std::int32_t BlunderCount;  // out: image coordinates marked as outlier
  std::uint16_t Flags;        // in, out
  std::uint16_t Tag;          // in
  std::uint32_t Format;       // in, out
  std::int32_t ProjectionId;  // in, out: id of a projection, -1 none
};
static_assert(sizeof(sXYZ_ExteriorOrient2) == 264 && offsetof(sXYZ_ExteriorOrient2, X0) == 0 &&
              offsetof(sXYZ_ExteriorOrient2, Rotation) == 24 &&
              offsetof(sXYZ_ExteriorOrient2, SPosition) == 96 &&
              offsetof(sXYZ_ExteriorOrient2, SRotation) == 120 &&
              offsetof(sXYZ_ExteriorOrient2, SMatrix) == 144 &&
              offsetof(sXYZ_ExteriorOrient2, RmsVx) == 216 &&
              offsetof(sXYZ_ExteriorOrient2, RmsVy) == 224 &&
              offsetof(sXYZ_ExteriorOrient2, Id) == 232 &&
              offsetof(sXYZ_ExteriorOrient2, IorId) == 236 &&
              offsetof(sXYZ_ExteriorOrient2, RayCount) == 240 &&
              offsetof(sXYZ_ExteriorOrient2, BlunderCount) == 244 &&
              offsetof(sXYZ_ExteriorOrient2, Flags) == 248 &&
              offsetof(sXYZ_ExteriorOrient2, Tag) == 250 &&
              offsetof(sXYZ_ExteriorOrient2, Format) == 252 &&
              offsetof(sXYZ_ExteriorOrient2, ProjectionId) == 256);

// A camera. With x, y of the central projection, r its radius and Z the depth:
//   K  = A1 (r^2 - R0^2) + A2 (r^4 - R0^4) + A3 (r^6 - R0^6)
//      + (AZ1 (r^2 - R0^2) + AZ2 (r^4 - R0^4)) / Z
//   dx = x K + B1 (2 x^2 + r^2) + 2 B2 x y + C1 x + C2 y
//   dy = y K + B2 (2 y^2 + r^2) + 2 B1 x y
//   image point = (x + dx + Xh, y + dy + Yh)
//   ParameterMask   0x1 Ck, 0x2 Xh, 0x4 Yh, 0x10 A1, 0x20 A2, 0x40 A3, 0x100 B1, 0x200 B2,
//                   0x400 C1, 0x800 C2, 0x1000 AZ1, 0x2000 AZ2: the parameter is estimated
struct sXYZ_InteriorOrient {
  double Ck;                    // in, out: principal distance, image units
  double Reserved1[2];          // not read, cleared on read
  double Xh, Yh;                // in, out: principal point, image units
  double A1, A2, A3;            // in, out: radial distortion, image units^-2, ^-4, ^-6
  double B1, B2;                // in, out: decentring distortion, image units^-1
  double C1, C2;                // in, out: affinity and shear, no unit
  double AZ1, AZ2;              // in, out: distance-dependent radial distortion
  double R0;                    // in, out: radius of zero radial distortion, image units
  double Sigma[12];             // out: standard deviations in the order Ck, Xh ... AZ2, in the
                                // unit of the parameter; 0 where not estimated
  double Correlation[12][12];   // out: correlations of the parameters, same order
  std::int32_t Id;              // in, out: camera id, key of the network
  std::int32_t Reserved2[2];    // not read, cleared on read
  std::uint16_t Flags;          // in, out
  std::uint16_t Tag;            // in
  std::uint32_t ParameterMask;  // in, out
};
static_assert(sizeof(sXYZ_InteriorOrient) == 1392 && offsetof(sXYZ_InteriorOrient, Ck) == 0 &&
              offsetof(sXYZ_InteriorOrient, Xh) == 24 && offsetof(sXYZ_InteriorOrient, Yh) == 32 &&
              offsetof(sXYZ_InteriorOrient, A1) == 40 && offsetof(sXYZ_InteriorOrient, A2) == 48 &&
              offsetof(sXYZ_InteriorOrient, A3) == 56 && offsetof(sXYZ_InteriorOrient, B1) == 64 &&
              offsetof(sXYZ_InteriorOrient, B2) == 72 && offsetof(sXYZ_InteriorOrient, C1) == 80 &&
              offsetof(sXYZ_InteriorOrient, C2) == 88 && offsetof(sXYZ_InteriorOrient, AZ1) == 96 &&
              offsetof(sXYZ_InteriorOrient, AZ2) == 104 &&
              offsetof(sXYZ_InteriorOrient, R0) == 112 &&
              offsetof(sXYZ_InteriorOrient, Sigma) == 120 &&
              offsetof(sXYZ_InteriorOrient, Correlation) == 216 &&
              offsetof(sXYZ_InteriorOrient, Id) == 1368 &&
              offsetof(sXYZ_InteriorOrient, Reserved2) == 1372 &&
              offsetof(sXYZ_InteriorOrient, Flags) == 1380 &&
              offsetof(sXYZ_InteriorOrient, Tag) == 1382 &&
              offsetof(sXYZ_InteriorOrient, ParameterMask) == 1384);

// A projection: principal distance and principal point of one image, used there in place
// of the camera's. The image point is ((x + dx) / ck Ck + Xh, (y + dy) / ck Ck + Yh) with x, y
// and ck of the camera.
struct sXYZ_Projection {
  double Ck, Xh, Yh;     // in, out: image units
  double SCk, SXh, SYh;  // out: standard deviations, image units
  std::int32_t Id;       // in, out: projection id, key of the network
  std::uint16_t Flags;   // in, out: read gives 0x01 only
  std::uint16_t Tag;     // in
};
static_assert(sizeof(sXYZ_Projection) == 56 && offsetof(sXYZ_Projection, Ck) == 0 &&
              offsetof(sXYZ_Projection, Xh) == 8 && offsetof(sXYZ_Projection, Yh) == 16 &&
              offsetof(sXYZ_Projection, SCk) == 24 && offsetof(sXYZ_Projection, SXh) == 32 &&
              offsetof(sXYZ_Projection, SYh) == 40 && offsetof(sXYZ_Projection, Id) == 48 &&
              offsetof(sXYZ_Projection, Flags) == 52 && offsetof(sXYZ_Projection, Tag) == 54);

// An infinite line through two points. Read gives the base point in P1 and the unit
// direction in P2.
struct sXYZ_Line {
  double P1[3];         // in: first point; out: base point; object units
  double P2[3];         // in: second point; out: unit direction
  double SP1[3];        // out: standard deviations of the base point, object units
  double SP2[3];        // out: standard deviations of the direction
  std::int32_t Id;      // in, out: line id, key of the network
  std::uint16_t Flags;  // in, out: read gives 0x01 only
  std::uint16_t Tag;    // in
};
static_assert(sizeof(sXYZ_Line) == 104 && offsetof(sXYZ_Line, P1) == 0 &&
              offsetof(sXYZ_Line, P2) == 24 && offsetof(sXYZ_Line, SP1) == 48 &&
              offsetof(sXYZ_Line, SP2) == 72 && offsetof(sXYZ_Line, Id) == 96 &&
              offsetof(sXYZ_Line, Flags) == 100 && offsetof(sXYZ_Line, Tag) == 102);

// An infinite plane through a point.
struct sXYZ_Plane {
  double Point[3];      // in, out: a point in the plane, object units
  double Normal[3];     // in: the normal, any length from 1e-10; out: the unit normal
  double SPlane[6];     // out: standard deviations of the point, then of the normal
  std::int32_t Id;      // in, out: plane id, key of the network
  std::uint16_t Flags;  // in, out: read gives 0x01 only
  std::uint16_t Tag;    // in
};
static_assert(sizeof(sXYZ_Plane) == 104 && offsetof(sXYZ_Plane, Point) == 0 &&
              offsetof(sXYZ_Plane, Normal) == 24 && offsetof(sXYZ_Plane, SPlane) == 48 &&
              offsetof(sXYZ_Plane, Id) == 96 && offsetof(sXYZ_Plane, Flags) == 100 &&
              offsetof(sXYZ_Plane, Tag) == 102);

// A relative orientation: a third image id for the points of image EorId seen relative to
// image BaseEorId. With (RE, tE) of EorId and (RB, tB) of BaseEorId, the base being given in
// the frame of EorId: x object = RE (RB x camera + tB) + tE. The camera is the base's.
struct sXYZ_RelativeOrientation {
  std::int32_t Id;         // in, out: the id that image coordinates use
  std::int32_t EorId;      // in, out
  std::int32_t BaseEorId;  // in, out
};
static_assert(sizeof(sXYZ_RelativeOrientation) == 12 &&
              offsetof(sXYZ_RelativeOrientation, Id) == 0 &&
              offsetof(sXYZ_RelativeOrientation, EorId) == 4 &&
              offsetof(sXYZ_RelativeOrientation, BaseEorId) == 8);

// A measured image point of an object point.
struct sXYZ_PictureCoord {
  double X, Y;           // in, out: measured, image units
  double Sx, Sy;         // in, out: a-priori standard deviations, above 0
  double Vx, Vy;         // out: residuals, image units
  double Rx, Ry;         // out: redundancy numbers, 0 to 1
  double Tx, Ty;         // out: test values of the outlier test
  std::int32_t PointId;  // in, out: object point
  std::int32_t EorId;    // in, out: image, an exterior or a relative orientation
  std::uint16_t Flags;   // in, out
  std::uint16_t Tag;     // in
};
static_assert(sizeof(sXYZ_PictureCoord) == 96 && offsetof(sXYZ_PictureCoord, X) == 0 &&
              offsetof(sXYZ_PictureCoord, Sx) == 16 && offsetof(sXYZ_PictureCoord, Vx) == 32 &&
              offsetof(sXYZ_PictureCoord, Rx) == 48 && offsetof(sXYZ_PictureCoord, Tx) == 64 &&
              offsetof(sXYZ_PictureCoord, PointId) == 80 &&
              offsetof(sXYZ_PictureCoord, EorId) == 84 &&
              offsetof(sXYZ_PictureCoord, Flags) == 88 && offsetof(sXYZ_PictureCoord, Tag) == 90);

// A measured image point that lies on the image of a line, anywhere along it.
struct sXYZ_PictureLineCoord {
  double X, Y;          // in, out: measured, image units
  double Sx, Sy;        // in, out: a-priori standard deviations, above 0; read gives Sx twice
  double V;             // out: residual, the signed distance from the line's image
  double R;             // out: redundancy number
  double T;             // out: test value
  std::int32_t Id;      // in, out: the measurement's own point number
  std::int32_t LineId;  // in, out: line
  std::int32_t EorId;   // in, out: image, an exterior or a relative orientation
  std::uint16_t Flags;  // in, out
  std::uint16_t Tag;    // in
};
static_assert(
    sizeof(sXYZ_PictureLineCoord) == 72 && offsetof(sXYZ_PictureLineCoord, X) == 0 &&
    offsetof(sXYZ_PictureLineCoord, Sx) == 16 && offsetof(sXYZ_PictureLineCoord, V) == 32 &&
    offsetof(sXYZ_PictureLineCoord, R) == 40 && offsetof(sXYZ_PictureLineCoord, T) == 48 &&
    offsetof(sXYZ_PictureLineCoord, Id) == 56 && offsetof(sXYZ_PictureLineCoord, LineId) == 60 &&
    offsetof(sXYZ_PictureLineCoord, EorId) == 64 && offsetof(sXYZ_PictureLineCoord, Flags) == 68 &&
    offsetof(sXYZ_PictureLineCoord, Tag) == 70);

// Measured coordinates of an object point.
struct sXYZ_MeasuredObjectCoord {
  double X, Y, Z;             // in, out: measured, object units
  double Sx, Sy, Sz;          // in, out: a-priori standard deviations, above 0
  double Vx, Vy, Vz;          // out: residuals, object units
  double Rx, Ry, Rz;          // out: redundancy numbers
  double Tx, Ty, Tz;          // out: test values
  std::int32_t PointId;       // in, out: object point
  std::int32_t ReferenceEor;  // in, out: image in whose frame they are measured, -1 none; on read
                              // -1 unless a run has linked it
  std::uint16_t Flags;        // in, out
  std::uint16_t Tag;          // in
};
static_assert(sizeof(sXYZ_MeasuredObjectCoord) == 136 &&
              offsetof(sXYZ_MeasuredObjectCoord, X) == 0 &&
              offsetof(sXYZ_MeasuredObjectCoord, Sx) == 24 &&
              offsetof(sXYZ_MeasuredObjectCoord, Vx) == 48 &&
              offsetof(sXYZ_MeasuredObjectCoord, Rx) == 72 &&
              offsetof(sXYZ_MeasuredObjectCoord, Tx) == 96 &&
              offsetof(sXYZ_MeasuredObjectCoord, PointId) == 120 &&
              offsetof(sXYZ_MeasuredObjectCoord, ReferenceEor) == 124 &&
              offsetof(sXYZ_MeasuredObjectCoord, Flags) == 128 &&
              offsetof(sXYZ_MeasuredObjectCoord, Tag) == 130);

// A measured distance between two object points.
struct sXYZ_Distance {
  double S;                     // in, out: measured, object units
  double Sigma;                 // in, out: a-priori standard deviation, above 0
  double V;                     // out: residual
  double T;                     // out: test value
  double R;                     // out: redundancy number
  std::int32_t Point1, Point2;  // in, out: object points
  std::uint16_t Flags;          // in, out
  std::uint16_t Tag;            // in
};
static_assert(sizeof(sXYZ_Distance) == 56 && offsetof(sXYZ_Distance, S) == 0 &&
              offsetof(sXYZ_Distance, Sigma) == 8 && offsetof(sXYZ_Distance, V) == 16 &&
              offsetof(sXYZ_Distance, T) == 24 && offsetof(sXYZ_Distance, R) == 32 &&
              offsetof(sXYZ_Distance, Point1) == 40 && offsetof(sXYZ_Distance, Point2) == 44 &&
              offsetof(sXYZ_Distance, Flags) == 48 && offsetof(sXYZ_Distance, Tag) == 50);

// Hard constraints: an object point lies exactly on a line, or on a plane.
//   Flags   0x01 active, nothing else
struct sXYZ_ConstraintPointOnLine {
  std::int32_t Id;       // in, out: constraint id
  std::int32_t PointId;  // in, out: object point
  std::int32_t LineId;   // in, out
  std::int32_t Flags;    // in, out
};
static_assert(sizeof(sXYZ_ConstraintPointOnLine) == 16 &&
              offsetof(sXYZ_ConstraintPointOnLine, Id) == 0 &&
              offsetof(sXYZ_ConstraintPointOnLine, PointId) == 4 &&
              offsetof(sXYZ_ConstraintPointOnLine, LineId) == 8 &&
              offsetof(sXYZ_ConstraintPointOnLine, Flags) == 12);

struct sXYZ_ConstraintPointOnPlane {
  std::int32_t Id;       // in, out: constraint id
  std::int32_t PointId;  // in, out: object point
  std::int32_t PlaneId;  // in, out
  std::int32_t Flags;    // in, out
};
static_assert(sizeof(sXYZ_ConstraintPointOnPlane) == 16 &&
              offsetof(sXYZ_ConstraintPointOnPlane, Id) == 0 &&
              offsetof(sXYZ_ConstraintPointOnPlane, PointId) == 4 &&
              offsetof(sXYZ_ConstraintPointOnPlane, PlaneId) == 8 &&
              offsetof(sXYZ_ConstraintPointOnPlane, Flags) == 12);

// ---------------------------------------------------------------------------
// Callbacks
// ---------------------------------------------------------------------------

// Inside a callback every function may be called but XYZ_DestroyJob of the job that is running.
// Functions and parameters set there hold from the next call or step on, a protocol file from the
// next run on; records take part in this run or not, as far as it has come. XYZ_CalcBundle of the
// running job does nothing and returns eXYZ_CalcFailed. What a callback throws does not leave
// XYZ_CalcBundle: the run ends there as a failed one, with eXYZ_CalcFailed or, for a
// vermo::KlException, the status of its code; a throw out of the last texts of a finished run or
// of the texts that tell a failure gives eXYZ_CalcFailed, and the rest of the protocol is missing.

// Called once per iteration, when its solution and statistics are known. A nonzero result
// cancels the run: XYZ_CalcBundle then returns eXYZ_CalcFailed.
typedef int (*XYZ_ProgressCallback)(void* job, sXYZ_CBProgressInfo* info, void* userData);

// Receives every text of the HTML protocol before the file does: NUL-terminated, ISO 8859-1,
// valid during the call. A text may hold several lines or lack its line end.
typedef void (*XYZ_ProtocolCallback)(void* job, char* text, void* userData);

// ---------------------------------------------------------------------------
// The job
// ---------------------------------------------------------------------------

// Do nothing and answer eXYZ_NoOperation, always.
XYZ_API int XYZ_Init();
XYZ_API int XYZ_Exit();
XYZ_API int XYZ_Reset(void* job);

// Fills the record; out is not checked. Needs no job.
XYZ_API void XYZ_GetVersion(gXYZ_sVersion* out);

// Length of the identification text in characters, without a terminator.
XYZ_API int XYZ_GetIdentificationCnt();
// Copies exactly that many characters, with no terminating NUL. Always 0.
XYZ_API int XYZ_GetIdentification(char* out);

// A new job, null on failure; throws nothing. The protocol goes to "Protokoll.htm" or, when the
// language is English at this moment, "Protocol.htm".
XYZ_API void* XYZ_CreateJob();
// The same with a protocol file name, which is copied. A null name gives a null job.
XYZ_API void* XYZ_CreateJob(const char* protocolFile);
// Frees the job and all it holds. 0; 11 for a null job. Throws nothing.
XYZ_API int XYZ_DestroyJob(void* job);

// Store function and user data, replacing earlier ones; null detaches. 0 or 12 (null job).
XYZ_API int XYZ_SetProgressCallback(void* job, XYZ_ProgressCallback function, void* userData);
XYZ_API int XYZ_SetProtocolCallback(void* job, XYZ_ProtocolCallback function, void* userData);
// The protocol file of the next run; the name is copied. 0; 12 for a null job or name.
XYZ_API int XYZ_SetNewProtocolFile(void* job, const char* protocolFile);

// Whether what was told so far fixes the datum of the network, and not twice: 0 allowed, 0x1
// nothing told, 0x10 scale, 0x100 translation, 0x1000 rotation undetermined, 0x10000 scale,
// 0x100000 translation, 0x1000000 rotation determined twice; the first of these that holds. It
// counts elements and looks at no geometry: fixed points, fixed images, protected measured
// coordinates and distances, the datum requests of parameter 4, and relative orientations with a
// fixed base. Also 12 (null job) and 14 (the check failed). Throws nothing; XYZ_CalcBundle does
// not depend on it.
XYZ_API int XYZ_CheckSettings(void* job);

// Runs the adjustment. 0, or 12 null job, 20 no progress, 21, 23 singular, 8 any other failure.
// After a failure the groups hold the values of the last completed iteration. Throws nothing.
// Values that no set function refuses are calculated with: infinite, huge or missing numbers,
// images and points where the model has no value, references to nobody. Elements whose references
// lead nowhere take no part; what the system does not determine is left out or fails the run.
// Figures that are no numbers pass every limit: such a run may end with 0, and its S0 is no number
// either. A finite S0 above 0 says that all that took part has finite values and accuracies.
XYZ_API int XYZ_CalcBundle(void* job);

// ---------------------------------------------------------------------------
// Parameters and results. 12 null job, 13 selector unknown or of the other type, 6 value not
// allowed. The output pointers are not checked.
// ---------------------------------------------------------------------------

XYZ_API int XYZ_SetParam(void* job, eXYZ_Parameter which, int value);
// Throws vermo::KlException -35001 for parameter 10 unless the value is above 0.
XYZ_API int XYZ_SetParam(void* job, eXYZ_Parameter which, double value);
XYZ_API int XYZ_GetParam(void* job, eXYZ_Parameter which, int* value);
XYZ_API int XYZ_GetParam(void* job, eXYZ_Parameter which, double* value);
XYZ_API int XYZ_GetResult(void* job, eXYZ_Result which, int* value);
XYZ_API int XYZ_GetResult(void* job, eXYZ_Result which, double* value);

// ---------------------------------------------------------------------------
// Unknown groups. Set: 0, 12 null job or record, 18 id exists; after a nonzero result the
// network is unchanged. Cnt: the count, -1 for a null job unless told otherwise.
// At: 0, 12 null job or record, 7 position negative or not below the count.
// ---------------------------------------------------------------------------

XYZ_API int XYZ_SetInteriorOrientation(void* job, const sXYZ_InteriorOrient* record);
XYZ_API int XYZ_GetInteriorOrientCnt(void* job);
XYZ_API int XYZ_GetInteriorOrientAt(void* job, int index, sXYZ_InteriorOrient* record);

// Also 4 (matrix not orthonormalisable), 6 (rotation type unknown, or angles without a unit).
// The id may be neither that of an image nor that of a relative orientation.
XYZ_API int XYZ_SetExteriorOrientation2(void* job, const sXYZ_ExteriorOrient2* record);
XYZ_API int XYZ_GetExteriorOrientCnt(void* job);
// Also 4 and 6; the fields filled before the failure stay.
XYZ_API int XYZ_GetExteriorOrientAt(void* job, int index, sXYZ_ExteriorOrient2* record);

XYZ_API int XYZ_SetObjectCoord(void* job, const sXYZ_ObjectCoord* record);
XYZ_API int XYZ_GetObjectCoordCnt(void* job);
XYZ_API int XYZ_GetObjectCoordAt(void* job, int index, sXYZ_ObjectCoord* record);

XYZ_API int XYZ_SetProjection(void* job, const sXYZ_Projection* record);
// 12 for a null job.
XYZ_API int XYZ_GetProjectionCnt(void* job);
XYZ_API int XYZ_GetProjectionAt(void* job, int index, sXYZ_Projection* record);

// Also 19 (the points are closer than 1e-10, or any failure while the line is built or stored).
XYZ_API int XYZ_SetLine(void* job, const sXYZ_Line* record);
XYZ_API int XYZ_GetLineCnt(void* job);
XYZ_API int XYZ_GetLineAt(void* job, int index, sXYZ_Line* record);

// Also 22 (the normal is shorter than 1e-10, or any failure while the plane is built or stored).
// 18 is answered for the id of a line, and not for that of a plane: two planes may share an id,
// which then stands for the later one.
XYZ_API int XYZ_SetPlane(void* job, const sXYZ_Plane* record);
XYZ_API int XYZ_GetPlaneCnt(void* job);
XYZ_API int XYZ_GetPlaneAt(void* job, int index, sXYZ_Plane* record);

XYZ_API int XYZ_SetRelativeOrientation(void* job, const sXYZ_RelativeOrientation* record);
XYZ_API int XYZ_GetRelativeOrientationCnt(void* job);
XYZ_API int XYZ_GetRelativeOrientationAt(void* job, int index, sXYZ_RelativeOrientation* record);

// ---------------------------------------------------------------------------
// Observations refer to groups by id; the ids are resolved by the run, so records may come in
// any order, and equal records are separate observations. Set: 0, 12 null job or record, 17 a
// standard deviation is not above 0. Before a run V, R and T read 0.
// ---------------------------------------------------------------------------

XYZ_API int XYZ_SetPictureCoord(void* job, const sXYZ_PictureCoord* record);
XYZ_API int XYZ_GetPictureCoordCnt(void* job);
XYZ_API int XYZ_GetPictureCoordsAt(void* job, int index, sXYZ_PictureCoord* record);

XYZ_API int XYZ_SetPictureLineCoord(void* job, const sXYZ_PictureLineCoord* record);
XYZ_API int XYZ_GetLinePictureCoordCnt(void* job);
// The position is checked against the count of image coordinates: one that those allow and the
// line image coordinates do not gives 0 and a record of zeros.
XYZ_API int XYZ_GetLinePictureCoordAt(void* job, int index, sXYZ_PictureLineCoord* record);

XYZ_API int XYZ_SetMeasuredObjectCoord(void* job, const sXYZ_MeasuredObjectCoord* record);
// 12 for a null job.
XYZ_API int XYZ_GetMeasuredObjectCoordCnt(void* job);
XYZ_API int XYZ_GetMeasuredObjectCoordAt(void* job, int index, sXYZ_MeasuredObjectCoord* record);

XYZ_API int XYZ_SetDistance(void* job, const sXYZ_Distance* record);
// 12 for a null job.
XYZ_API int XYZ_GetDistanceCnt(void* job);
XYZ_API int XYZ_GetDistanceAt(void* job, int index, sXYZ_Distance* record);

// ---------------------------------------------------------------------------
// Hard constraints. Set: 0, 12 null job or record. An id is never refused: a later constraint of
// the same id takes it over, and both stay in the list and act.
// ---------------------------------------------------------------------------

XYZ_API int XYZ_SetConstraintPointOnLine(void* job, const sXYZ_ConstraintPointOnLine* record);
XYZ_API int XYZ_GetConstraintPointOnLineCnt(void* job);
XYZ_API int XYZ_GetConstraintPointOnLineAt(void* job,
                                           int index,
                                           sXYZ_ConstraintPointOnLine* record);

XYZ_API int XYZ_SetConstraintPointOnPlane(void* job, const sXYZ_ConstraintPointOnPlane* record);
XYZ_API int XYZ_GetConstraintPointOnPlaneCnt(void* job);
XYZ_API int XYZ_GetConstraintPointOnPlaneAt(void* job,
                                            int index,
                                            sXYZ_ConstraintPointOnPlane* record);

#endif  // CARDO_BUNDLE_XYZ_API_H
