#pragma once

#include <cstdint>

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

// Each for processors that have the instructions, and for jobs whose reads stay within [ReadBegin, ReadEnd).

void ScaleBySse2(const ScaleJob& job);
void ScaleBySsse3(const ScaleJob& job);
void ScaleByAvx2(const ScaleJob& job);
void ScaleByAvx512(const ScaleJob& job);
void ScaleByAvx512Vbmi(const ScaleJob& job);

// Builders of columns: for processors that have the instructions.

void BuildColumnsBySse2(double step, std::uint32_t entries, std::int32_t* index,
                        std::uint16_t* weight);
void BuildColumnsByAvx2(double step, std::uint32_t entries, std::int32_t* index,
                        std::uint16_t* weight);
void BuildColumnsByAvx512(double step, std::uint32_t entries, std::int32_t* index,
                          std::uint16_t* weight);

}  // namespace lidcam
