// SPDX-License-Identifier: Apache-2.0
// The per-frame ROI input records of the statistics algorithms and the fixed ROI container.
#pragma once

#include <cstddef>
#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "stats/statsalgo/common/statslog.h"

/// Size of every per-ROI array of the ROI processor.
constexpr unsigned int MaxROICount = 16;

/// Landmark points that one input face record carries.
constexpr unsigned int MaxROILandmarkCount = 12;

/// One ROI in image pixels. All fields are zero after construction.
struct PARAMETERPARSER_API ROIData
{
    /// Identifier of the ROI, stable across frames; negative at input marks an unused record,
    /// so the stored value is compared as unsigned.
    uint32_t roiID = 0;
    float left = 0.0F;
    float top = 0.0F;
    float width = 0.0F;
    float height = 0.0F;
    /// The input record's integer of the same name, as float; carried along, not interpreted.
    float carriedValue = 0.0F;
    /// 1 when face shaping cut the mask area out of this ROI in the last frame.
    uint32_t maskRemoved = 0;
    /// Written by the dominant scoring; not interpreted here.
    float normalizedSize = 0.0F;
};

/// A rectangle of the input record in image pixels.
struct StatsROIRectangle
{
    uint32_t left;
    uint32_t top;
    uint32_t width;
    uint32_t height;
};

/// One landmark point of the input record in image pixels.
struct StatsROIPoint
{
    int32_t x;
    int32_t y;
};

/// One input ROI as another library fills it: field order and widths are binding.
struct StatsROIData
{
    int32_t roiID; ///< negative marks an unused record
    uint32_t left;
    uint32_t top;
    uint32_t width;
    uint32_t height;
    StatsROIRectangle maskROI; ///< the area of a face mask
    int32_t maskValid;         ///< 1 when maskROI is meaningful
    StatsROIPoint landmarks[MaxROILandmarkCount];
    uint32_t landmarkCount; ///< valid entries of landmarks
    int32_t carriedValue;
    int32_t poseValid; ///< 1 when the three angles are meaningful
    float pitch;       ///< head pose in degrees
    float yaw;
    float roll;
};

/// The per-frame input of the ROI processor: an opaque leading word, the count, the records.
struct StatsROIInformation
{
    uint64_t reserved; ///< owned by the producer; not read here
    uint32_t roiCount; ///< records in use; the producer keeps it at MaxROICount or below
    StatsROIData roiData[MaxROICount];
};

// The producer is compiled elsewhere, so the layout is pinned here.
static_assert(sizeof(StatsROIData) == 160, "StatsROIData layout is shared with its producer");
static_assert(offsetof(StatsROIData, maskROI) == 20, "StatsROIData layout");
static_assert(offsetof(StatsROIData, maskValid) == 36, "StatsROIData layout");
static_assert(offsetof(StatsROIData, landmarks) == 40, "StatsROIData layout");
static_assert(offsetof(StatsROIData, landmarkCount) == 136, "StatsROIData layout");
static_assert(offsetof(StatsROIData, roll) == 156, "StatsROIData layout");
static_assert(offsetof(StatsROIInformation, roiCount) == 8, "StatsROIInformation layout");
static_assert(offsetof(StatsROIInformation, roiData) == 12,
              "StatsROIInformation: no gap between the count and the records");

/// `roi` clipped to `window` (of which only left, top, width and height count), relative to the
/// window's corner. A side outside the window, or not a number, is cut to the window's edge.
ROIData ClipToWindow(ROIData roi, ROIData const& window);

/// The ROIs of one frame in image coordinates, with the image resolution, the crop window and
/// the AEC gain. No virtual operations and no allocation: it runs once a frame per algorithm.
class PARAMETERPARSER_API ROIsData
{
public:
    /// No ROIs, zero resolution and crop window, AEC gain 1.0, name "Unknown", no log hook.
    ROIsData();

    /// The image width; a value below 1.0 (unset) reads as 1.0.
    float GetWidth() const;
    /// The image height; a value below 1.0 (unset) reads as 1.0.
    float GetHeight() const;
    /// The crop window's width; a value below 1.0 reads as 1.0.
    float GetCropWidth() const;
    /// The crop window's height; a value below 1.0 reads as 1.0.
    float GetCropHeight() const;
    float GetCropLeft() const { return m_cropWindow.left; }
    float GetCropTop() const { return m_cropWindow.top; }
    float GetAECGain() const { return m_aecGain; }
    char const* GetName() const { return m_name; }
    StatsLogFunction GetLogFunction() const { return m_logFunction; }

    unsigned int Size() const { return m_roiCount; }
    unsigned int GetROIsCount() const { return m_roiCount; }
    /// Stores the count as given; the caller keeps it at MaxROICount or below.
    void SetROIsCount(unsigned int count) { m_roiCount = count; }
    /// The MaxROICount records, also those behind the count.
    ROIData* GetROIs() { return m_rois; }
    ROIData const* GetROIs() const { return m_rois; }
    /// Copies all MaxROICount records of `rois`, whatever the count; false only for null.
    bool SetROIs(ROIData const* rois);
    /// Zeroes the records; the count stays.
    void Clear();

    /// The record at `index`, also a stale one behind the count. An index of MaxROICount or
    /// above logs "invalid index" at level 2 and gives a zero record.
    ROIData GetROI(int index) const;
    /// The record with left and width over the image width, top and height over the image
    /// height. The division is done for any index below MaxROICount, so an unset resolution
    /// gives infinities: test the resolution first. Other indexes log at level 2 and give zero.
    ROIData GetNormalizeROI(int index) const;
    /// The record clipped to the crop window, relative to its corner. Index rule of GetROI;
    /// with no valid crop window logs at level 2 and gives GetROI(index).
    ROIData GetROIInCrop(int index) const;
    /// GetROIInCrop normalised by the crop size. A bad index gives a zero record without a log;
    /// with no valid crop window logs at level 2 and gives GetNormalizeROI(index).
    ROIData GetNormalizeROIInCrop(int index) const;

    /// Installs the log hook and the set's name (at most 31 characters are kept). Either
    /// argument null: false, logging "NULL input pointer" through the hook already installed.
    bool SetLogFunction(char const* name, StatsLogFunction function);
    /// Both values above 0.0: stored, traced at level 32, true. Otherwise logged at level 2;
    /// false and the old resolution stays.
    bool SetImageResolution(float width, float height);
    /// A window with left and top at least 0.0 and a positive size: stored, traced, true.
    /// Otherwise logged at level 16; false and the old window stays.
    bool SetCropWindow(float left, float top, float width, float height);
    /// A gain of 1.0 or above is stored; one less than 0.01 below 1.0 is stored as 1.0. Any
    /// other gain is logged at level 4 and refused (false); the old gain stays.
    bool SetAECGain(float gain);

    /// The first index below `count` whose roiID equals `id`; -1 when none or `count` < 1.
    static int FindROIIndexByROIID(ROIData const* list, int count, int id);

    /// Converts the input records with a non-negative roiID into `output`, packed, and sets the
    /// count. With `processPartial` 1 each ROI is trimmed to the crop window and dropped when
    /// ProcessPartialROI says so. Null `information` or `output`: level 2 log, false, nothing
    /// changes. At most MaxROICount records are read whatever the input count says.
    bool ConvertToROIData(StatsROIInformation const* information, ROIData* output,
                          int processPartial, float threshold);
    /// Trims `roi` to the crop window and returns 1 when it should be dropped: a fraction cut
    /// off above `threshold`, or nothing left. Without a usable crop window (traced at level
    /// 32) returns 0 and leaves `roi` alone.
    int ProcessPartialROI(ROIData& roi, float threshold) const;

    /// ConvertToROIData into the own records with threshold 1.0; always true.
    bool UpdateROIData(StatsROIInformation const* information, int processPartial);

protected:
    /// A crop window is valid with left and top at least 0.0 and a positive size.
    bool IsCropWindowValid() const;

    ROIData m_rois[MaxROICount];
    unsigned int m_roiCount;
    ROIData m_cropWindow; ///< only left, top, width and height are used
    float m_imageWidth;
    float m_imageHeight;
    float m_aecGain;
    char m_name[32];
    StatsLogFunction m_logFunction;
};
