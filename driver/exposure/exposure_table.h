#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace lidcam {

/// One operating point of the sensor.
struct AeTableEntry {
  std::uint32_t Exposure;   ///< flicker periods, 1 to 20
  std::uint8_t CoarseGain;  ///< sensor register 0xFF60, 1 to 3
  std::uint8_t FineGain;    ///< sensor register 0xFF5D, 128 to 240
};

inline constexpr std::size_t kAeTableRows = 81;

/// Neighbouring operating points that differ in the fine gain only.
struct AeTableBand {
  std::uint8_t First;
  std::uint8_t Last;
  std::uint8_t Exposure;
  std::uint8_t CoarseGain;
  std::array<std::uint8_t, 16> FineGains;
};

// From bright scenes to dark ones. The steps that break the pattern (150 at index 46, 190 at 24,
// back to 170 at 72) are the sensor's tuning.
inline constexpr AeTableBand kAeTableBands[] = {
    {0, 15, 1, 1, {128, 134, 142, 148, 156, 164, 172, 180, 188, 196, 204, 212, 220, 228, 236, 240}},
    {16, 24, 2, 1, {128, 134, 142, 148, 156, 164, 172, 180, 190}},
    {25, 30, 3, 1, {128, 134, 142, 148, 156, 164}},
    {31, 35, 4, 1, {128, 134, 142, 148, 156}},
    {36, 38, 5, 1, {128, 134, 142}},
    {39, 42, 5, 2, {128, 134, 142, 148}},
    {43, 48, 6, 2, {128, 134, 142, 150, 156, 164}},
    {49, 51, 6, 3, {128, 134, 142}},
    {52, 54, 7, 3, {128, 134, 142}},
    {55, 57, 8, 3, {128, 134, 142}},
    {58, 60, 9, 3, {128, 134, 142}},
    {61, 62, 10, 3, {128, 134}},
    {63, 63, 11, 3, {128}},
    {64, 64, 12, 3, {128}},
    {65, 65, 13, 3, {128}},
    {66, 71, 14, 3, {128, 140, 150, 160, 170, 180}},
    {72, 72, 15, 3, {170}},
    {73, 73, 16, 3, {170}},
    {74, 74, 17, 3, {170}},
    {75, 75, 18, 3, {170}},
    {76, 76, 19, 3, {170}},
    {77, 80, 20, 3, {170, 180, 186, 192}},
};

consteval bool AeTableBandsFollowEachOther() {
  std::size_t next = 0;
  for (const AeTableBand& band : kAeTableBands) {
    if (band.First != next || band.Last < band.First) return false;
    next = std::size_t{band.Last} + 1;
  }
  return next == kAeTableRows;
}
static_assert(AeTableBandsFollowEachOther());

consteval std::array<AeTableEntry, kAeTableRows> ExpandAeTable() {
  std::array<AeTableEntry, kAeTableRows> rows{};
  for (const AeTableBand& band : kAeTableBands) {
    for (std::size_t index = band.First; index <= band.Last; ++index) {
      rows[index] = {band.Exposure, band.CoarseGain, band.FineGains[index - band.First]};
    }
  }
  return rows;
}

/// The operating points from the brightest scene (short exposure, low gain) at 0 to the darkest at
/// 80.
inline constexpr std::array<AeTableEntry, kAeTableRows> AeTable = ExpandAeTable();

// A band that is given too few fine gains leaves rows with the gain 0.
consteval bool EveryAeTableRowIsFilled() {
  for (const AeTableEntry& row : AeTable) {
    if (row.FineGain == 0) return false;
  }
  return true;
}
static_assert(EveryAeTableRowIsFilled());

}  // namespace lidcam
