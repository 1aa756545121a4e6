#include "Scratch.h"

#include "lab/material/LeadNames.h"
#include "lab/material/LoadRecord.h"

#include <gtest/gtest.h>

using namespace lab;

TEST(LeadNamesTest, WhatRecordersWrite) {
    for (const char* name : {"I", "Lead I", "lead_i", "ECG I", "EKG I", "ECG Lead I", "ECG_1",
                             "ECG I-Ref", "EKG1", "I-A1", " I "}) {
        EXPECT_EQ(LeadOfDescription(name), ECG_LEAD_I) << name;
    }
    for (const char* name :
         {"II", "ECG II", "EKG", "ecg", "EKG 2", "ECG Lead II", "MLII", "II-Ref"}) {
        EXPECT_EQ(LeadOfDescription(name), ECG_LEAD_II) << name;
    }
    EXPECT_EQ(LeadOfDescription("EKG V1"), ECG_LEAD_V1);
    EXPECT_EQ(LeadOfDescription("ecg v6-a2"), ECG_LEAD_V6);
    for (const char* name : {"", "III", "aVR", "Resp", "PLETH", "1", "2", "V7", "C3-A2", "ECG III",
                             "EEG C3", "Lead", "VI", "ECG1-ECG2"}) {
        EXPECT_EQ(LeadOfDescription(name), ECG_LEAD_NONE) << name;
    }
}

TEST(LeadNamesTest, DerivedLeadsAreKnown) {
    EXPECT_TRUE(IsDerivedLead("III"));
    EXPECT_TRUE(IsDerivedLead("ECG aVR"));
    EXPECT_FALSE(IsDerivedLead("II"));
}

// A record has the same meaning whether the library reads it itself or not, so every name that the
// library knows must have the same meaning here. Its descriptions have 15 characters.
TEST(LeadNamesTest, LibraryAgrees) {
    const Scratch scratch;
    scratch.Write("r.dat", std::string(4, '\0'));
    for (const std::string name :
         {"ECG0",         "ECG 1",       "ECG1",        "ECG 2",      "ECG2",
          "ECG",          "ECG [ECG1]",  "ECG I",       "ECG II",     "ECG lead 1",
          "ECG lead 2",   "ECG lead I",  "ECG Lead II", "ECG LeadII", "ECG Lead V3",
          "ECG Lead V4",  "ECG lead V5", "ECG lead V6", "ECG lead V", "ECG signal 0",
          "ECG signal 1", "ECG V1",      "ECG V2",      "ECG V3",     "ECG V4",
          "ECG V5",       "ECG V6",      "ECG V",       "ECG V Lead", "i",
          "I+",           "I",           "ii",          "II+",        "lead I",
          "lead II",      "lead V",      "MCL1",        "MCL1+",      "ML2",
          "ML5",          "MLI",         "MLII",        "mod.V1",     "MV2",
          "ST1",          "ST2",         "ST I_1/2",    "ST_I",       "ST II_3/3",
          "ST_II",        "ST V_2/2",    "v1",          "V1-V2",      "V2-V3",
          "V4-V5",        "V+",          "V",           "Thorax_1",   "Thorax_2",
          "Abdomen_1",    "Abdomen_4"}) {
        MaterialRequest request;
        request.name = scratch.Write("r.hea", "r 1 100 2\nr.dat 16 200 16 0 0 0 0 " + name + "\n");
        const Record byLibrary = LoadRecord(request);
        EXPECT_EQ(byLibrary.signalFormat, 16);
        EXPECT_EQ(byLibrary.signals[0].lead, LeadOfDescription(name)) << name;
        EXPECT_NE(byLibrary.signals[0].lead, ECG_LEAD_NONE) << name;
    }
}
