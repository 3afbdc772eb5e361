#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace golden {

// A network with every kind of element in every state, gross errors of several sizes, tags,
// protected and rejected observations, and more warnings of one number than are told.
void BuildEverything(void* job);

// Four free images of a plate with three control points, without errors but noise.
void BuildPlate(void* job);

// The same with four points between the control points, not thirteen: for short protocols.
void BuildSmallPlate(void* job);

// Two free images of the points of the small plate, all of them fixed, with a free camera.
void BuildCameraImages(void* job);

// The small plate without control points, its datum given by all of its points.
void BuildFreePlate(void* job);

// One more image coordinate for a point of the plates that has one in the image already, wrong by
// so many standard deviations in x.
void AddWrongRay(void* job, int point, int image, double error);

// A line at the height of the second point with one image coordinate in an image that looks
// straight down from 500 mm: the image's plane is z = 500, its projection centre (0, 0, 500).
void AddLineUnderStraightImage(void* job,
                               const std::array<double, 3>& first,
                               const std::array<double, 3>& second);

// Images of the control points of the small plate only: free ones, with their rotations in the
// given formats, and a fixed one.
void BuildImages(void* job, std::span<const std::uint32_t> formats);

// Fixed groups of each kind, several fixed lines in a row, and one free point.
void BuildFixedGroups(void* job);

// Points with measured coordinates and distances, without an image.
void BuildMeasured(void* job);

}  // namespace golden
