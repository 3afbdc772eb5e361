#pragma once

#include "xyz_api.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace hostile {

// The records of a network, as a caller would hold them.
struct Records {
  std::vector<sXYZ_InteriorOrient> cameras;
  std::vector<sXYZ_Projection> projections;
  std::vector<sXYZ_ExteriorOrient2> images;
  std::vector<sXYZ_RelativeOrientation> pairs;
  std::vector<sXYZ_ObjectCoord> points;
  std::vector<sXYZ_Line> lines;
  std::vector<sXYZ_Plane> planes;
  std::vector<sXYZ_PictureCoord> rays;
  std::vector<sXYZ_PictureLineCoord> lineRays;
  std::vector<sXYZ_MeasuredObjectCoord> measured;
  std::vector<sXYZ_Distance> distances;
  std::vector<sXYZ_ConstraintPointOnLine> onLine;
  std::vector<sXYZ_ConstraintPointOnPlane> onPlane;
};

// Five images, two cameras, a projection, a relative orientation, eleven points of which three are
// fixed and one is given in the frame of an image, a line, a plane, both constraints, measured
// coordinates in both frames, distances: well determined, redundant, with small errors.
//   ids   cameras 1, 2; projection 7; images 1 to 5; pair 50 of images 1 and 5; points 1 to 11;
//         line 20; plane 30; constraints 40 to 44
Records CompleteNetwork();

// The calls that one type of record has.
template <typename Record>
struct Calls {
  const char* name;
  std::vector<Record> Records::*list;
  int (*set)(void* job, const Record* record);
  int (*count)(void* job);
  int (*at)(void* job, int index, Record* record);
  // Statuses of set beside 0 and 17 or 18.
  std::vector<int> refusals;
};
const Calls<sXYZ_InteriorOrient>& CallsOf(const sXYZ_InteriorOrient*);
const Calls<sXYZ_Projection>& CallsOf(const sXYZ_Projection*);
const Calls<sXYZ_ExteriorOrient2>& CallsOf(const sXYZ_ExteriorOrient2*);
const Calls<sXYZ_RelativeOrientation>& CallsOf(const sXYZ_RelativeOrientation*);
const Calls<sXYZ_ObjectCoord>& CallsOf(const sXYZ_ObjectCoord*);
const Calls<sXYZ_Line>& CallsOf(const sXYZ_Line*);
const Calls<sXYZ_Plane>& CallsOf(const sXYZ_Plane*);
const Calls<sXYZ_PictureCoord>& CallsOf(const sXYZ_PictureCoord*);
const Calls<sXYZ_PictureLineCoord>& CallsOf(const sXYZ_PictureLineCoord*);
const Calls<sXYZ_MeasuredObjectCoord>& CallsOf(const sXYZ_MeasuredObjectCoord*);
const Calls<sXYZ_Distance>& CallsOf(const sXYZ_Distance*);
const Calls<sXYZ_ConstraintPointOnLine>& CallsOf(const sXYZ_ConstraintPointOnLine*);
const Calls<sXYZ_ConstraintPointOnPlane>& CallsOf(const sXYZ_ConstraintPointOnPlane*);

// What one run showed.
struct Outcome {
  int status = -1;
  int iterations = 0;  // calls of the progress function
  int disabled = 0;    // texts of the protocol that tell of a disabled group
  std::string protocol;
};

// A job for the whole life of one network. Its protocol file lies in the temporary folder and is
// removed with the job.
class Job {
 public:
  Job();
  ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  [[nodiscard]] void* Handle() const { return fJob; }
  // Hands every record over. Each status must be documented, and a refused record must leave its
  // list as long as it was.
  void Feed(const Records& records);
  // One run. A limit is set beforehand by XYZ_SetParam; the progress function cancels a run that
  // would go beyond it.
  Outcome Calc(unsigned iterationLimit = 200);
  // Reads every parameter, every result and every record at every valid position and beside it.
  void ReadBack() const;
  // A run that ended well with a finite S0 above 0 has finite values and accuracies in all that
  // took part: what is not a number shows in the status or in S0.
  void ExpectFiniteResults(const Outcome& run) const;

  // The protocol of the last run stands whole in its file.
  void ExpectWholeProtocolFile(const Outcome& run) const;

 private:
  std::string fProtocolFile;
  void* fJob;
};

// The road of one bad network: feed, check of the settings, a run, a second one in the other
// language, a third one without iterations, reading after each, and the end of the job. Returns
// what the first run showed. Before that the network goes the same road without lines and planes.
Outcome Survive(const Records& records);
// The same for a job that is fed already.
Outcome SurviveRuns(Job& job, unsigned iterationLimit = 200);

}  // namespace hostile
