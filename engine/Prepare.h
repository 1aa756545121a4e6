#pragma once

// Turns a sample instant of the loaded material into the eight output channels (a frame) and into
// the twelve standard leads (a lead set).
//
// Frame: eight codes in channel order I, II, V6, V5, V4, V3, V2, V1.  The chest leads run
// backwards on the device.
// Lead set: twelve millivolt values in the order I, II, III, aVR, aVL, aVF, V1 to V6.
//
// The frame path runs on the play thread, the lead-set path on the preview thread and on the
// host's; all of them only read the material, periodic waveforms' scratch cells apart.  What the
// material lacks (a signal, a sample) is 0.

#include <cstdint>

constexpr int kFrameChannels = 8;

// Play position of the frame path: a sample index, for native text material milliseconds.
extern uint64_t g_nSampleCurrent;

// Where a play starts and loops back to, in units of g_nSampleCurrent.
extern uint32_t g_nStartPosition;

// Both zero their array first; kinds of material that do not exist leave it at zero.
void PrepareRawData(int* frame);
void PrepareSignalData(int index, double* leads);

// The same lead set for a position that may exceed an index: cut to 32 bits, a position far before
// the start or far past the end would come to lie inside the record.
void PrepareSignalDataAt(int64_t position, double* leads);

// The frame at g_nSampleCurrent, one routine per kind of material.
void DoPrepareRawDataDirectMode(int* frame);
void DoPrepareRawDataAHA(int* frame);
void DoPrepareRawDataMappingMode(int* frame);
void DoPrepareRawDataTarnwickMode(int* frame);
void DoPrepareRawDataEDF(int* frame);
void DoPrepareRawDataPeriodical(int* frame);

// The direct routine at a given sample.
void DoPrepareRawDataDirectModeEx(int index, int* frame);

// Lead sets of a sample, one routine per kind of material.
void DoPrepareSignalDataDirectMode(int index, double* leads);
void DoPrepareSignalDataAHA(int index, double* leads);
void DoPrepareSignalDataMappingMode(int index, double* leads);
void DoPrepareSignalEDF(int index, double* leads);
void DoPrepareSignalDataPeriodical(int index, double* leads);

// The frame and the lead set of one instant whose eight leads (I, II, V1 to V6) are known.
void FrameFromLeads(const double* eight, int* frame);
void LeadSetFromLeads(const double* eight, double* leads);
