#include "engine/Record.h"
#include "engine/Conversion.h"
#include "engine/LeadMapping.h"
#include "engine/Settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct FreeHeader {
    void operator()(ECG_HEADER* header) const { FreeECGHeader(header); }
};
using Header = std::unique_ptr<ECG_HEADER, FreeHeader>;

// A record of one signal per description, which the engine owns.
ECG_HEADER* LoadRecord(const std::vector<std::string>& descriptions) {
    ECG_HEADER* header = NewECGHeader(static_cast<int64_t>(descriptions.size()));
    header->NumberOfSignals = static_cast<int64_t>(descriptions.size());
    for (size_t i = 0; i < descriptions.size(); ++i) {
        std::strncpy(header->Signal[i].Description, descriptions[i].c_str(), 15);
        header->Signal[i].Lead = MappingLeadText(header->Signal[i].Description);
    }
    ReplaceECGHeader(header);
    UpdateMITMappingLeadIndex();
    return header;
}

std::vector<int32_t> Mapping() {
    return {std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead)};
}

bool AllBytesZero(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

// ---- Initial state -----------------------------------------------------------------------------

TEST(RecordState, IsThatOfAFreshlyLoadedLibrary) {
    EXPECT_EQ(g_WaveformType, MATERIAL_NONE);
    EXPECT_EQ(g_NoiseOn, 0);
    EXPECT_EQ(g_nNoiseCurrent, 0u);
    EXPECT_TRUE(AllBytesZero(g_NoiseData, 40000));
    EXPECT_EQ(sizeof(g_NoiseData), 40000u);
    EXPECT_EQ(g_pECGHeader, nullptr);
    EXPECT_EQ(Mapping(), std::vector<int32_t>(8, 0));
    EXPECT_EQ(g_pECGData, nullptr);
    EXPECT_EQ(g_iECGSignalNumber, 0);
    EXPECT_EQ(g_nSampleCount, 0u);
    EXPECT_EQ(g_nSampleRate, 0u);
    EXPECT_EQ(g_fVoltageRange, 5.0);
    EXPECT_EQ(g_bPlayLoop, 0);
}

// ---- Header ------------------------------------------------------------------------------------

TEST(RecordHeader, SizeIncludesOneSpareEntry) {
    EXPECT_EQ(CalcECGHeaderSize(0), 76u);
    EXPECT_EQ(CalcECGHeaderSize(1), 96u);
    EXPECT_EQ(CalcECGHeaderSize(12), 316u);
}

TEST(RecordHeader, SizeOfAnAbsurdCountDoesNotWrap) {
    EXPECT_EQ(CalcECGHeaderSize(2147483647), 42949673016u);
}

TEST(RecordHeader, NewHeaderIsZeroedUpToItsSpareEntry) {
    const Header header(NewECGHeader(3));
    ASSERT_NE(header, nullptr);
    EXPECT_TRUE(AllBytesZero(header.get(), 76 + 3 * 20));
}

TEST(RecordHeader, NewHeaderRefusesAbsurdCounts) {
    EXPECT_EQ(NewECGHeader(-1), nullptr);
    EXPECT_EQ(NewECGHeader(std::numeric_limits<int64_t>::max()), nullptr);
    EXPECT_EQ(NewECGHeader(int64_t{1} << 33), nullptr);
}

TEST(RecordHeader, AHAHasTwoLeadsAt250PerSecond) {
    const Header header(NewECGHeaderAHA(525000, "1001"));
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "1001");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 2);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 250);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 525000);
    EXPECT_EQ(GetWFDBHeader(header.get()), nullptr);
    EXPECT_TRUE(AllBytesZero(header->Reserved, 8));
    EXPECT_STREQ(header->Signal[0].Description, "ECG 1");
    EXPECT_EQ(ECG_Lead{header->Signal[0].Lead}, ECG_LEAD_I);
    EXPECT_STREQ(header->Signal[1].Description, "ECG 2");
    EXPECT_EQ(ECG_Lead{header->Signal[1].Lead}, ECG_LEAD_II);
    EXPECT_TRUE(AllBytesZero(&header->Signal[2], 20)) << "the spare entry stays zero";
}

TEST(RecordHeader, AllChannelMapsTheEightLeadsInOrder) {
    const Header header(NewECGHeaderAllChannel(500, 5000, "MA1_001"));
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "MA1_001");
    EXPECT_EQ(int64_t{header->NumberOfSignals}, 8);
    EXPECT_EQ(int64_t{header->SamplingFrequency}, 500);
    EXPECT_EQ(int64_t{header->NumberOfSamples}, 5000);
    const char* names[] = {"ECG 1",  "ECG 2",  "ECG V1", "ECG V2",
                           "ECG V3", "ECG V4", "ECG V5", "ECG V6"};
    for (int i = 0; i < 8; ++i) {
        EXPECT_STREQ(header->Signal[i].Description, names[i]);
        EXPECT_EQ(static_cast<int>(header->Signal[i].Lead), i);
    }
    EXPECT_TRUE(AllBytesZero(&header->Signal[8], 20)) << "the spare entry stays zero";
}

TEST(RecordHeader, NameIsCutTo15Characters) {
    const Header header(NewECGHeaderAHA(1, "0123456789ABCDEFGH"));
    EXPECT_STREQ(header->RecordName, "0123456789ABCDE");
}

TEST(RecordHeader, CopyIsByteForByte) {
    const Header header(NewECGHeaderAllChannel(500, 5000, "copy"));
    const Header copy(CopyECGHeader(header.get()));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy.get(), header.get());
    EXPECT_EQ(std::memcmp(copy.get(), header.get(), 76 + 8 * 20), 0);
}

TEST(RecordHeader, FreeIgnoresNull) {
    FreeECGHeader(nullptr);
}

TEST(RecordHeader, FreeReleasesTheRecordHeaderToo) {
    char path[] = "/tmp/ravo-record-XXXXXX";
    const int descriptor = mkstemp(path);
    ASSERT_NE(descriptor, -1);
    const std::string text = "r 1 360 10\nr.dat 16\n";
    ASSERT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(descriptor);
    WFDB_HEADER* record = WFDBReadHeader(path);
    unlink(path);
    ASSERT_NE(record, nullptr);
    ECG_HEADER* header = NewECGHeader(1);
    header->WFDBHeader = record;
    EXPECT_EQ(GetWFDBHeader(header), record);
    FreeECGHeader(header); // a record left over would fail the leak check
}

// ---- Lead names --------------------------------------------------------------------------------

TEST(LeadText, KnowsEveryNameOfTheTable) {
    // One text per lead, rows separated by "|", in the order I, II, V1 .. V6.
    const char* rows[8] = {
        ("ECG 1|ECG1|ECG [ECG1]|ECG I|ECG lead 1|ECG lead I|ECG Lead I|ECG signal 0|i|I |I+|I|"
         "lead I|MCL1 |MCL1+|MCL1|MLI|ST1|ST I_1/2|ST I_1/3|ST I_2/2|ST I_2/3|ST I_3/3|ST_I|"
         "Thorax_1"),
        ("ECG0|ECG 2|ECG2|ECG|ECG II|ECG lead 2|ECG lead II |ECG Lead II|ECG LeadII|ECG signal 1|"
         "ii|II |II+|II|lead II|ML2|MLII|ST2|ST II_1/2|ST II_1/3|ST II_2/3|ST II_3/3|ST_II|"
         "Thorax_2"),
        ("ECG lead V|ECG Lead V |ECG Lead V|ECG V1|ECG V|ECG V Lead|lead V|mod.V1|ST V_1/2|"
         "ST V_1/3|ST V_2/2|ST V_2/3|ST V_3/3|v1|V1|V1-V2|V |V+|V|Abdomen_1"),
        "ECG V2|MV2 |MV2|v2|V2|V2-V3|Abdomen_2",
        "ECG Lead V3|ECG V3|v3|V3|Abdomen_3",
        "ECG Lead V4|ECG V4|v4|V4|V4-V5|Abdomen_4",
        "ECG lead V5|ECG Lead V5|ECG V5|ML5|v5|V5",
        "ECG lead V6|ECG V6|v6|V6",
    };
    int names = 0;
    for (int lead = 0; lead < 8; ++lead) {
        std::string rest = rows[lead];
        while (!rest.empty()) {
            const size_t end = std::min(rest.find('|'), rest.size());
            const std::string name = rest.substr(0, end);
            EXPECT_EQ(static_cast<int>(MappingLeadText(name.c_str())), lead) << '"' << name << '"';
            rest.erase(0, end + 1);
            ++names;
        }
    }
    EXPECT_EQ(names, 97);
}

TEST(LeadText, IsExactAboutCaseAndBlanks) {
    EXPECT_EQ(MappingLeadText("I "), ECG_LEAD_I);
    EXPECT_EQ(MappingLeadText("i"), ECG_LEAD_I);
    for (const char* unknown : {"", " I", "I  ", "Lead I", "ecg", "ECG lead II", "aVF", "V7", "VI",
                                "MCL1 +", "ECG lead V5 "}) {
        EXPECT_EQ(MappingLeadText(unknown), ECG_LEAD_NONE) << '"' << unknown << '"';
    }
    EXPECT_EQ(MappingLeadText(nullptr), ECG_LEAD_NONE);
}

// ---- Mapping -----------------------------------------------------------------------------------

TEST(Mapping, NothingIsMappedBeforeAnyLoad) {
    EXPECT_EQ(FindMappingLeadIndex(ECG_LEAD_I), -1);
    UpdateMITMappingLeadIndex();
    EXPECT_EQ(Mapping(), std::vector<int32_t>(8, -1));
}

TEST(Mapping, ALeadWithoutSignalIsNotMapped) {
    LoadRecord({"V6", "V5", "V4", "V2", "V1", "II", "I"});
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{6, 5, 4, 3, -1, 2, 1, 0}));
    EXPECT_EQ(FindMappingLeadIndex(ECG_LEAD_V3), -1);
}

TEST(Mapping, TheFirstOfTwoEqualSignalsFeedsTheLead) {
    LoadRecord({"II", "V1", "V1"});
    EXPECT_EQ(FindMappingLeadIndex(ECG_LEAD_V1), 1);
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{-1, 0, 1, -1, -1, -1, -1, -1}));
}

TEST(Mapping, AHeaderWithoutSignalsMapsNothing) {
    ECG_HEADER* header = LoadRecord({"I", "II"});
    header->NumberOfSignals = 0;
    EXPECT_EQ(FindMappingLeadIndex(ECG_LEAD_I), -1);
    header->NumberOfSignals = -3;
    EXPECT_EQ(FindMappingLeadIndex(ECG_LEAD_I), -1);
}

TEST(Mapping, UpdateTakesOnlyTheLeads) {
    LoadRecord({"MLII", "V5"});
    const Header edited(CopyECGHeader(g_pECGHeader));
    std::strcpy(edited->Signal[0].Description, "changed");
    edited->SamplingFrequency = 1;
    edited->Signal[0].Lead = ECG_LEAD_V3;
    edited->Signal[1].Lead = ECG_LEAD_I;
    UpdateMappingLead(edited.get());
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{1, -1, -1, -1, 0, -1, -1, -1}));
    EXPECT_STREQ(g_pECGHeader->Signal[0].Description, "MLII");
    EXPECT_EQ(int64_t{g_pECGHeader->SamplingFrequency}, 0);
}

TEST(Mapping, UpdateFromALargerRecordTakesWhatTheEngineHas) {
    LoadRecord({"I", "II"});
    const Header edited(NewECGHeaderAllChannel(500, 1, "eight"));
    edited->Signal[0].Lead = ECG_LEAD_V6;
    UpdateMappingLead(edited.get());
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{-1, 1, -1, -1, -1, -1, -1, 0}));
}

TEST(Mapping, UpdateFromASmallerRecordDoesNotReadPastIt) {
    LoadRecord({"V1", "V2", "V3"});
    const Header edited(NewECGHeader(1));
    edited->NumberOfSignals = 1;
    edited->Signal[0].Lead = ECG_LEAD_II;
    UpdateMappingLead(edited.get());
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{-1, 0, -1, 1, 2, -1, -1, -1}));
}

TEST(Mapping, UpdateTakesLeadsThatDoNotExist) {
    LoadRecord({"I", "II"});
    const Header edited(CopyECGHeader(g_pECGHeader));
    edited->Signal[0].Lead = static_cast<ECG_Lead>(-7);
    edited->Signal[1].Lead = static_cast<ECG_Lead>(1000);
    UpdateMappingLead(edited.get());
    EXPECT_EQ(Mapping(), std::vector<int32_t>(8, -1));
}

TEST(Mapping, UpdateBeforeAnyLoadOrWithNullDoesNothing) {
    const Header edited(NewECGHeaderAHA(1, "x"));
    UpdateMappingLead(edited.get());
    EXPECT_EQ(Mapping(), std::vector<int32_t>(8, 0));
    LoadRecord({"II"});
    UpdateMappingLead(nullptr);
    EXPECT_EQ(Mapping(), (std::vector<int32_t>{-1, 0, -1, -1, -1, -1, -1, -1}));
}

TEST(Mapping, ReplacingTheHeaderReleasesTheEarlierBlock) {
    LoadRecord({"I"});
    const ECG_HEADER* second = LoadRecord({"II"});
    EXPECT_EQ(g_pECGHeader, second);
    ReplaceECGHeader(nullptr);
    EXPECT_EQ(g_pECGHeader, nullptr);
}

// ---- Sample buffer -----------------------------------------------------------------------------

int Reallocate(int32_t type, uint64_t samples, int signals) {
    g_WaveformType = type;
    g_nSampleCount = samples;
    return ReallocateECGDataBuffer(signals);
}

TEST(SampleBuffer, HoldsZerosForEverySignal) {
    ASSERT_EQ(Reallocate(MATERIAL_MIT, 1000, 3), 1);
    EXPECT_EQ(g_iECGSignalNumber, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(AllBytesZero(g_pECGData[i], 1000 * sizeof(double)));
    }
    EXPECT_EQ(GetECGSignal(2), g_pECGData[2]);
    EXPECT_EQ(GetECGSignal(3), nullptr);
    EXPECT_EQ(GetECGSignal(-1), nullptr);
}

TEST(SampleBuffer, ReallocationStartsFromZerosAgain) {
    ASSERT_EQ(Reallocate(MATERIAL_MIT, 10, 2), 1);
    g_pECGData[1][9] = 1.5;
    ASSERT_EQ(Reallocate(MATERIAL_MIT, 10, 2), 1);
    EXPECT_EQ(g_pECGData[1][9], 0.0);
}

TEST(SampleBuffer, AHAHasTwoArraysHoweverManySignals) {
    ASSERT_EQ(Reallocate(MATERIAL_AHA, 10, 4), 1);
    EXPECT_EQ(g_iECGSignalNumber, 4);
    EXPECT_NE(g_pECGData[0], nullptr);
    EXPECT_NE(g_pECGData[1], nullptr);
    EXPECT_EQ(g_pECGData[2], nullptr);
    EXPECT_EQ(g_pECGData[3], nullptr);
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST(SampleBuffer, WithoutSamplesEveryArrayIsNull) {
    EXPECT_EQ(Reallocate(MATERIAL_DIRECT, 0, 8), 1);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(g_pECGData[i], nullptr);
    }
    EXPECT_EQ(ValidateECGData(), 0);
}

TEST(SampleBuffer, NoSignalsIsAnEmptySuccess) {
    EXPECT_EQ(Reallocate(MATERIAL_MIT, 10, 0), 1);
    EXPECT_EQ(g_iECGSignalNumber, 0);
    EXPECT_NE(g_pECGData, nullptr);
    EXPECT_EQ(ValidateECGData(), 0);
    FreeECGDataBuffer();
}

TEST(SampleBuffer, ANegativeCountCountsAsNone) {
    EXPECT_EQ(Reallocate(MATERIAL_MIT, 10, -5), 1);
    EXPECT_EQ(g_iECGSignalNumber, 0);
    EXPECT_EQ(ValidateECGData(), 0);
}

TEST(SampleBuffer, RefusesWhatCannotBeSized) {
    EXPECT_EQ(Reallocate(MATERIAL_MIT, (uint64_t{1} << 60) + 1, 1), 0);
    EXPECT_EQ(ValidateECGData(), 0);
    EXPECT_EQ(Reallocate(MATERIAL_MIT, uint64_t{1} << 61, 8), 0);
    EXPECT_EQ(ValidateECGData(), 0);
    EXPECT_EQ(Reallocate(MATERIAL_MIT, std::numeric_limits<uint64_t>::max(), 2), 0);
    EXPECT_EQ(ValidateECGData(), 0);
    EXPECT_EQ(Reallocate(MATERIAL_MIT, 10, 2), 1) << "the engine is usable afterwards";
}

TEST(SampleBuffer, RefusesMoreThanThePhysicalMemory) {
    const auto physical = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                          static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    EXPECT_EQ(Reallocate(MATERIAL_MIT, physical / 8, 1), 0);
    EXPECT_EQ(Reallocate(MATERIAL_MIT, physical / 64 + 1, 8), 0)
        << "all arrays together count, not each of them";
    EXPECT_EQ(Reallocate(MATERIAL_MIT, 1, 2147483647), 0);
    EXPECT_EQ(ValidateECGData(), 0);
    FreeECGDataBuffer();
}

TEST(SampleBuffer, FreeingTwiceIsHarmless) {
    ASSERT_EQ(Reallocate(MATERIAL_DIRECT, 10, 8), 1);
    double** table = g_pECGData;
    FreeECGDataBuffer();
    EXPECT_EQ(g_pECGData, table) << "the buffer's place stays known";
    EXPECT_EQ(g_iECGSignalNumber, 8);
    EXPECT_EQ(ValidateECGData(), 0);
    EXPECT_EQ(GetECGSignal(0), nullptr);
    FreeECGDataBuffer();
    EXPECT_EQ(ValidateECGData(), 0);
    EXPECT_EQ(Reallocate(MATERIAL_DIRECT, 20, 3), 1);
    EXPECT_EQ(ValidateECGData(), 1);
}

TEST(SampleBuffer, FreeingBeforeAnyLoadDoesNothing) {
    FreeECGDataBuffer();
    EXPECT_EQ(g_pECGData, nullptr);
}

// ---- Validation --------------------------------------------------------------------------------

TEST(Validate, NothingLoadedCannotBePlayed) {
    EXPECT_EQ(ValidateECGData(), 0);
}

TEST(Validate, EveryArrayMustExist) {
    ASSERT_EQ(Reallocate(MATERIAL_DIRECT, 10, 8), 1);
    EXPECT_EQ(ValidateECGData(), 1);
    for (int missing : {0, 3, 7}) {
        double* array = std::exchange(g_pECGData[missing], nullptr);
        EXPECT_EQ(ValidateECGData(), 0) << missing;
        g_pECGData[missing] = array;
    }
}

TEST(Validate, AHANeedsItsFirstTwoArrays) {
    ASSERT_EQ(Reallocate(MATERIAL_AHA, 10, 2), 1);
    EXPECT_EQ(ValidateECGData(), 1);
    double* second = std::exchange(g_pECGData[1], nullptr);
    EXPECT_EQ(ValidateECGData(), 0);
    g_pECGData[1] = second;
}

TEST(Validate, AHAOverAnEarlierOneSignalBufferDoesNotReadPastIt) {
    ASSERT_EQ(Reallocate(MATERIAL_MIT, 10, 1), 1);
    g_WaveformType = MATERIAL_AHA;
    EXPECT_EQ(ValidateECGData(), 0);
}

TEST(Validate, MappedMaterialNeedsOneMappedLead) {
    for (int32_t type : {MATERIAL_MIT, MATERIAL_EDF_FOUR_CHEST, MATERIAL_EDF}) {
        ASSERT_EQ(Reallocate(type, 10, 9), 1);
        std::fill(std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead), -1);
        EXPECT_EQ(ValidateECGData(), 0) << type;
        g_ECGMappingLead[2] = 8;
        EXPECT_EQ(ValidateECGData(), 0) << type;
        g_ECGMappingLead[7] = 9;
        EXPECT_EQ(ValidateECGData(), 0) << "a signal that the buffer does not have, " << type;
        g_ECGMappingLead[7] = 7;
        EXPECT_EQ(ValidateECGData(), 1) << type;
    }
}

TEST(Validate, OtherMaterialDoesNotLookAtTheMapping) {
    std::fill(std::begin(g_ECGMappingLead), std::end(g_ECGMappingLead), -1);
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_AHA, MATERIAL_TARNWICK, MATERIAL_TABLE,
                         MATERIAL_SINE, MATERIAL_TRIANGLE_PULSE}) {
        ASSERT_EQ(Reallocate(type, 10, 8), 1);
        EXPECT_EQ(ValidateECGData(), 1) << type;
    }
}

// ---- Settings ----------------------------------------------------------------------------------

TEST(Settings, AreStored) {
    SetOutputVoltageRange(2.5);
    EXPECT_EQ(g_fVoltageRange, 2.5);
    EnableNoise(true);
    EXPECT_EQ(g_NoiseOn, 1);
    EnableNoise(false);
    EXPECT_EQ(g_NoiseOn, 0);
    SetOutputLoop(true);
    EXPECT_EQ(g_bPlayLoop, 1);
    SetOutputLoop(false);
    EXPECT_EQ(g_bPlayLoop, 0);
}

TEST(Settings, WaitForTheEngineLock) {
    g_CriticalSection.Lock();
    std::thread setter([] { SetOutputVoltageRange(1.0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(g_fVoltageRange, 5.0);
    g_CriticalSection.Unlock();
    setter.join();
    EXPECT_EQ(g_fVoltageRange, 1.0);
}

TEST(Settings, VoltageIsHeldToTheRange) {
    SetOutputVoltageRange(2.5);
    EXPECT_EQ(AdjustVoltage(2.4), 2.4);
    EXPECT_EQ(AdjustVoltage(2.5), 2.5);
    EXPECT_EQ(AdjustVoltage(2.6), 2.5);
    EXPECT_EQ(AdjustVoltage(-2.6), -2.5);
    EXPECT_EQ(AdjustVoltage(std::numeric_limits<double>::infinity()), 2.5);
    EXPECT_EQ(AdjustVoltage(-std::numeric_limits<double>::infinity()), -2.5);
}

} // namespace
