/* Prints the layout of every structure that a host exchanges with the library: "NAME size" and
 * "NAME.FIELD offset size". */
#include "api/ravo.h"

#include <stdio.h>

#define SIZE(structure) printf(#structure " %zu\n", sizeof(structure))
#define FIELD(structure, field)                                                                    \
    printf(#structure "." #field " %zu %zu\n", offsetof(structure, field),                         \
           sizeof(((structure*)NULL)->field))

static void PrintSignal(void) {
    SIZE(WFDB_SIGNAL);
    FIELD(WFDB_SIGNAL, FileName);
    FIELD(WFDB_SIGNAL, Format);
    FIELD(WFDB_SIGNAL, SamplesPerFrame);
    FIELD(WFDB_SIGNAL, Skew);
    FIELD(WFDB_SIGNAL, ByteOffset);
    FIELD(WFDB_SIGNAL, ADCGain);
    FIELD(WFDB_SIGNAL, ADCBaseLine);
    FIELD(WFDB_SIGNAL, ADCUnit);
    FIELD(WFDB_SIGNAL, Reserved);
    FIELD(WFDB_SIGNAL, ADCResolution);
    FIELD(WFDB_SIGNAL, ADCZero);
    FIELD(WFDB_SIGNAL, InitialValue);
    FIELD(WFDB_SIGNAL, Checksum);
    FIELD(WFDB_SIGNAL, BlockSize);
    FIELD(WFDB_SIGNAL, Description);
}

static void PrintHeader(void) {
    SIZE(WFDB_HEADER);
    FIELD(WFDB_HEADER, RecordName);
    FIELD(WFDB_HEADER, NumberOfSetments);
    FIELD(WFDB_HEADER, NumberOfSignals);
    FIELD(WFDB_HEADER, SamplingFrequency);
    FIELD(WFDB_HEADER, CounterFrequency);
    FIELD(WFDB_HEADER, BaseCounter);
    FIELD(WFDB_HEADER, NumberOfSamplesPerSignal);
    FIELD(WFDB_HEADER, BaseTime);
    FIELD(WFDB_HEADER, BaseDate);
    FIELD(WFDB_HEADER, Reserved);
    FIELD(WFDB_HEADER, Signal);
}

static void PrintAnnotation(void) {
    SIZE(WFDB_ANNOTATION);
    FIELD(WFDB_ANNOTATION, Time);
    FIELD(WFDB_ANNOTATION, Type);
    FIELD(WFDB_ANNOTATION, Reserved);
    FIELD(WFDB_ANNOTATION, SubType);
    FIELD(WFDB_ANNOTATION, Channel);
    FIELD(WFDB_ANNOTATION, Number);
    FIELD(WFDB_ANNOTATION, AuxText);
}

static void PrintMaterial(void) {
    SIZE(ECG_SIGNAL);
    FIELD(ECG_SIGNAL, Description);
    FIELD(ECG_SIGNAL, Lead);
    SIZE(ECG_HEADER);
    FIELD(ECG_HEADER, RecordName);
    FIELD(ECG_HEADER, NumberOfSignals);
    FIELD(ECG_HEADER, SamplingFrequency);
    FIELD(ECG_HEADER, NumberOfSamples);
    FIELD(ECG_HEADER, WFDBHeader);
    FIELD(ECG_HEADER, Reserved);
    FIELD(ECG_HEADER, Signal);
}

static void PrintInformation(void) {
    SIZE(MODEL_INFORMATION);
    FIELD(MODEL_INFORMATION, ModelName);
    FIELD(MODEL_INFORMATION, SerialNumber);
    SIZE(RAVO_OUTPUT_INFORMATION);
    FIELD(RAVO_OUTPUT_INFORMATION, DACBits);
    FIELD(RAVO_OUTPUT_INFORMATION, CalibrationLoaded);
    FIELD(RAVO_OUTPUT_INFORMATION, DevicePath);
    FIELD(RAVO_OUTPUT_INFORMATION, CalibrationFile);
    SIZE(RAVO_OUTPUT_POSITION);
    FIELD(RAVO_OUTPUT_POSITION, FramesSent);
    FIELD(RAVO_OUTPUT_POSITION, FramesPlayed);
    FIELD(RAVO_OUTPUT_POSITION, StartTime);
    FIELD(RAVO_OUTPUT_POSITION, FirstRequestTime);
    FIELD(RAVO_OUTPUT_POSITION, LastRequestTime);
    FIELD(RAVO_OUTPUT_POSITION, Requests);
    FIELD(RAVO_OUTPUT_POSITION, FramesPerRequest);
    FIELD(RAVO_OUTPUT_POSITION, NominalRate);
    FIELD(RAVO_OUTPUT_POSITION, MeasuredRate);
    FIELD(RAVO_OUTPUT_POSITION, DelayReports);
    FIELD(RAVO_OUTPUT_POSITION, DelayTotal);
    SIZE(RAVO_SEARCH_ENTRY);
    FIELD(RAVO_SEARCH_ENTRY, Port);
    FIELD(RAVO_SEARCH_ENTRY, Finding);
    FIELD(RAVO_SEARCH_ENTRY, SystemError);
    FIELD(RAVO_SEARCH_ENTRY, Owner);
    FIELD(RAVO_SEARCH_ENTRY, AnswerSize);
    FIELD(RAVO_SEARCH_ENTRY, Answer);
    FIELD(RAVO_SEARCH_ENTRY, OwnerName);
    FIELD(RAVO_SEARCH_ENTRY, Text);
    SIZE(RAVO_BUILTIN_RECORD);
    FIELD(RAVO_BUILTIN_RECORD, Name);
    FIELD(RAVO_BUILTIN_RECORD, SamplesPerPeriod);
    FIELD(RAVO_BUILTIN_RECORD, NumberOfSamples);
    FIELD(RAVO_BUILTIN_RECORD, SamplingFrequency);
    FIELD(RAVO_BUILTIN_RECORD, Licensed);
    SIZE(RAVO_BUILTIN_NOISE);
    FIELD(RAVO_BUILTIN_NOISE, Name);
    FIELD(RAVO_BUILTIN_NOISE, Licensed);
}

int main(void) {
    PrintSignal();
    PrintHeader();
    PrintAnnotation();
    PrintMaterial();
    PrintInformation();
    return 0;
}
