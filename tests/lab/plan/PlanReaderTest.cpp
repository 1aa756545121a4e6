#include "lab/common/Failure.h"
#include "lab/plan/Plan.h"
#include "lab/plan/Run.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

class PlanReaderTest : public testing::Test {
  protected:
    Plan Read(const std::string& text) const { return ReadPlan(m_scratch.Write("p.toml", text)); }

    // The messages about a plan that is wrong, without the folder; "" when it is right.
    std::string ErrorsIn(const std::string& text) const {
        const std::string path = m_scratch.Write("p.toml", text);
        testing::internal::CaptureStderr();
        bool isRefused = false;
        try {
            ReadPlan(path);
        } catch (const Failure& failure) {
            isRefused = failure.Status() == kUsage;
        }
        std::string lines = testing::internal::GetCapturedStderr();
        EXPECT_EQ(isRefused, !lines.empty());
        for (auto at = lines.find(path); at != std::string::npos; at = lines.find(path)) {
            lines.replace(at, path.size(), "p.toml");
        }
        return lines;
    }

    // The same for one step after three lines.
    std::string ErrorsInStep(const std::string& fields) const {
        return ErrorsIn("title = \"t\"\n[[step]]\nname = \"s\"\n" + fields);
    }

    Scratch m_scratch;
};

std::vector<std::string> NamesOf(const Plan& plan) {
    std::vector<std::string> names;
    for (const PlannedStep& step : plan.steps) {
        names.push_back(step.name);
    }
    return names;
}

constexpr const char* kMaterialFields =
    "amplitude, as-edf, format, frequency, gain, loop, map, material, matrix, missing, name, "
    "noise, noise-record, offset, pause, rate, repeat, require-calibrated, seconds, sha256, snr, "
    "start, unit, width";

} // namespace

// ---- Plans that are right -----------------------------------------------------------------------

TEST_F(PlanReaderTest, ReadsAStepOfEachKind) {
    const Plan plan = Read(R"(
title = "All kinds"
[[step]]
name = "m"
material = "sine"
start = 2
seconds = 10
frequency = 5
amplitude = [1, 2, 3, 4, 5, 6, 7, 8.5]
pause = 1.5
[[step]]
name = "a"
ask = "How much?"
unit = "mV"
min = 1
max = 1.1
[[step]]
name = "w"
wait = 30
[[step]]
name = "h"
hook = ["./x", "-y"]
timeout = 5
)");
    ASSERT_EQ(plan.steps.size(), 4U);
    EXPECT_EQ(plan.title, "All kinds");
    const PlannedStep& material = plan.steps[0];
    EXPECT_EQ(material.kind, StepKind::kMaterial);
    EXPECT_EQ(material.play.material.name, "sine");
    EXPECT_EQ(material.play.start, 2.0);
    EXPECT_EQ(material.play.seconds, 10.0);
    EXPECT_EQ(material.play.material.frequency, 5.0);
    EXPECT_EQ(material.play.material.amplitude, (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8.5}));
    EXPECT_EQ(material.play.material.waveformOptions,
              (std::set<std::string>{"--amplitude", "--frequency"}));
    EXPECT_EQ(material.pause, 1.5);
    EXPECT_EQ(plan.steps[1].question.text, "How much?");
    EXPECT_EQ(plan.steps[1].question.unit, "mV");
    EXPECT_EQ(plan.steps[1].question.min, 1.0);
    EXPECT_EQ(plan.steps[1].question.max, 1.1);
    EXPECT_EQ(plan.steps[2].wait, 30.0);
    EXPECT_EQ(plan.steps[3].hook, (std::vector<std::string>{"./x", "-y"}));
    EXPECT_EQ(plan.steps[3].timeout, 5.0);
}

TEST_F(PlanReaderTest, ReadsWhatIsDoneToMaterial) {
    const Plan plan = Read(R"(
title = "t"
[[step]]
name = "a"
material = "a.csv"
start = 2.25
gain = 2
offset = -0.5
missing = "zero"
rate = 359.5
unit = "uV"
noise = "em.hea"
[[step]]
name = "b"
material = "b.edf"
start = 3.0
as-edf = true
gain = { V1 = 0.5, II = -1 }
noise = "50HZ"
)");
    const MaterialRequest& first = plan.steps[0].play.material;
    EXPECT_EQ(plan.steps[0].play.start, 2.25);
    EXPECT_EQ(first.start, 2.25);
    EXPECT_EQ(first.gain, std::vector<std::string>{"2"});
    EXPECT_EQ(first.offset, -0.5);
    EXPECT_EQ(first.missing, "zero");
    EXPECT_EQ(first.rate, 359.5);
    EXPECT_EQ(first.unit, "uV");
    EXPECT_EQ(first.builtinNoise, m_scratch / "em.hea");
    const MaterialRequest& second = plan.steps[1].play.material;
    EXPECT_EQ(plan.steps[1].play.start, 3.0);
    EXPECT_EQ(second.start, 0.0); // nothing to leave out
    EXPECT_TRUE(second.asEdf);
    EXPECT_EQ(second.gain, (std::vector<std::string>{"V1=0.5", "II=-1"}));
    EXPECT_EQ(second.builtinNoise, "50HZ");
    EXPECT_EQ(second.missing, "hold");
}

// A default unit applies to questions; that of material is stated in its step.
TEST_F(PlanReaderTest, TheUnitOfDefaultsIsThatOfQuestions) {
    const Plan plan = Read("title = \"t\"\n[defaults]\nunit = \"V\"\n"
                           "[[step]]\nname = \"m\"\nmaterial = \"a.csv\"\n"
                           "[[step]]\nname = \"q\"\nask = \"?\"\n");
    EXPECT_FALSE(plan.steps[0].play.material.unit);
    EXPECT_EQ(plan.steps[1].question.unit, "V");
}

TEST_F(PlanReaderTest, TablesVaryToo) {
    const Plan plan = Read("title = \"t\"\n[[step]]\nname = \"x\"\nmaterial = \"a.hea\"\n"
                           "matrix = { map = [{ MLII = \"I\" }, { \"a ]\" = \"II\" }] }\n");
    EXPECT_EQ(NamesOf(plan), (std::vector<std::string>{"x[{MLII=\"I\"}]", "x[{\"a ]\"=\"II\"}]"}));
    EXPECT_EQ(plan.steps[1].play.material.map, std::vector<std::string>{"a ]=II"});
}

TEST_F(PlanReaderTest, ReadsAScore) {
    const Plan plan = Read(R"(
title = "t"
[[step]]
name = "s"
score = { reference = "100.atr", test = "d/100.det", learning = 0, window = 1_00.5, offset = 0.1, qrs_se_min = 0.995, average_veb_fpr_max = 1 }
)");
    const PlannedStep& step = plan.steps[0];
    EXPECT_EQ(step.kind, StepKind::kScore);
    EXPECT_EQ(step.score.request.reference, "100.atr");
    EXPECT_EQ(step.score.request.test, "d/100.det");
    EXPECT_EQ(step.score.request.rules.learning, score::Rational(0));
    EXPECT_EQ(step.score.request.rules.window, score::Rational(1005, 10'000));
    EXPECT_EQ(step.score.request.rules.offset, score::Rational(1, 10));
    EXPECT_EQ(step.score.request.rules.clockPpm, score::Rational(0));
    ASSERT_EQ(step.score.limits.size(), 2U);
    EXPECT_EQ(step.score.limits[0].limit.figure, "qrs_se");
    EXPECT_TRUE(step.score.limits[0].limit.isLeast);
    EXPECT_EQ(step.score.limits[0].value, 0.995);
    EXPECT_EQ(step.score.limits[1].limit.figure, "average_veb_fpr");
    EXPECT_FALSE(step.score.limits[1].limit.isLeast);
}

TEST_F(PlanReaderTest, PathsAreRelativeToThePlan) {
    const Plan plan = Read("title = \"t\"\n"
                           "[[step]]\nname = \"a\"\nmaterial = \"100.hea\"\n"
                           "noise-record = \"noise/em\"\n"
                           "[[step]]\nname = \"b\"\nmaterial = \"/data/100.hea\"\n"
                           "[[step]]\nname = \"c\"\nmaterial = \"builtin:CAL20000\"\n"
                           "noise = \"none\"\n");
    EXPECT_EQ(plan.steps[0].play.material.name, m_scratch / "100.hea");
    EXPECT_EQ(plan.steps[0].play.material.noise, m_scratch / "noise/em");
    EXPECT_EQ(plan.steps[1].play.material.name, "/data/100.hea");
    EXPECT_EQ(plan.steps[2].play.material.name, "builtin:CAL20000");
    EXPECT_EQ(plan.steps[2].play.material.builtinNoise, "");
}

TEST_F(PlanReaderTest, DefaultsServeStepsThatTheyFit) {
    const Plan plan = Read("title = \"t\"\n[defaults]\npause = 1\nseconds = 7\nunit = \"V\"\n"
                           "map = { MLII = \"I\" }\nmaterial = \"a.hea\"\n"
                           "[[step]]\nname = \"m\"\n"
                           "[[step]]\nname = \"n\"\nmaterial = \"b.hea\"\nseconds = 8\n"
                           "[[step]]\nname = \"w\"\nwait = 1\npause = 0\n");
    EXPECT_EQ(plan.steps[0].material, "a.hea");
    EXPECT_EQ(plan.steps[0].play.seconds, 7.0);
    EXPECT_EQ(plan.steps[0].play.material.map, std::vector<std::string>{"MLII=I"});
    EXPECT_EQ(plan.steps[1].material, "b.hea");
    EXPECT_EQ(plan.steps[1].play.seconds, 8.0);
    EXPECT_EQ(plan.steps[1].pause, 1.0);
    EXPECT_EQ(plan.steps[2].kind, StepKind::kWait);
    EXPECT_EQ(plan.steps[2].pause, 0.0);
}

TEST_F(PlanReaderTest, TheLastKeyOfAMatrixIsTheFastestAndRepetitionsComeFirst) {
    const Plan plan = Read("title = \"t\"\n[[step]]\nname = \"x\"\nmaterial = \"sine\"\n"
                           "repeat = 2\n"
                           "matrix = { frequency = [1, 0.50], amplitude = [2.0, -1e0] }\n");
    EXPECT_EQ(NamesOf(plan),
              (std::vector<std::string>{"x[1,2.0]#1", "x[1,2.0]#2", "x[1,-1e0]#1", "x[1,-1e0]#2",
                                        "x[0.50,2.0]#1", "x[0.50,2.0]#2", "x[0.50,-1e0]#1",
                                        "x[0.50,-1e0]#2"}));
    EXPECT_EQ(plan.steps[4].play.material.frequency, 0.5);
    EXPECT_EQ(plan.steps[4].play.material.amplitude, std::vector<double>{2.0});
    EXPECT_EQ(plan.steps[7].play.material.amplitude, std::vector<double>{-1.0});
    EXPECT_EQ(plan.steps[7].stepName, "x");
}

TEST_F(PlanReaderTest, NamesOfResults) {
    EXPECT_EQ(NamesOf(Read("title = \"t\"\n[[step]]\nname = \"x\"\nwait = 1\nrepeat = 3\n")),
              (std::vector<std::string>{"x#1", "x#2", "x#3"}));
    EXPECT_EQ(NamesOf(Read("title = \"t\"\n[[step]]\nname = \"x\"\nmaterial = \"builtin:MA1_001\"\n"
                           "matrix = { noise = [\"none\", \"50HZ\"] }\n")),
              (std::vector<std::string>{"x[none]", "x[50HZ]"}));
}

TEST_F(PlanReaderTest, TheExampleIsRight) {
    const Plan plan = Read(kExamplePlan);
    EXPECT_EQ(NamesOf(plan),
              (std::vector<std::string>{"sine[1,0.5]", "sine[1,1.0]", "sine[10,0.5]",
                                        "sine[10,1.0]", "sine[40,0.5]", "sine[40,1.0]",
                                        "noise[none]#1", "noise[none]#2", "noise[50HZ]#1",
                                        "noise[50HZ]#2", "amplitude", "alarm", "settle"}));
}

// ---- Plans that are wrong -----------------------------------------------------------------------

TEST_F(PlanReaderTest, TellsEverythingThatIsWrongAtOnce) {
    EXPECT_EQ(ErrorsIn("titel = \"t\"\n[[step]]\nname = \"a b\"\nmaterial = \"sine\"\n"
                       "seconds = \"ten\"\n[[step]]\nwait = -1\n"),
              "p.toml:1:1: titel: is not a field of a plan; allowed are title, defaults, step\n"
              "p.toml:1:1: title: is missing; every plan has a text title\n"
              "p.toml:3:8: name: is the text \"a b\"; it has to be a text of letters, digits, "
              "\".\", \"_\" and \"-\"\n"
              "p.toml:5:11: seconds: is the text \"ten\"; it has to be a number from 0.001 to "
              "100000000\n"
              "p.toml:6:1: name: is missing; every step has a name of its own\n"
              "p.toml:7:8: wait: is the number -1; it has to be a number from 0 to 100000000\n");
}

struct Wrong {
    const char* fields; // from line 4 on
    const char* error;
};

// Without this, gtest prints parameters as bytes, addresses included.
void PrintTo(const Wrong& wrong, std::ostream* out) {
    *out << wrong.error;
}

class WrongStepTest : public PlanReaderTest, public testing::WithParamInterface<Wrong> {};

TEST_P(WrongStepTest, IsToldInOneLine) {
    EXPECT_EQ(ErrorsInStep(GetParam().fields), std::string("p.toml:") + GetParam().error + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Steps, WrongStepTest,
    testing::Values(
        Wrong{"",
              "2:1: step: does nothing; it has exactly one of material, ask, wait, hook, score"},
        Wrong{"wait = 1\nask = \"?\"\n",
              "4:1: wait: stands beside ask; a step has exactly one of material, ask, wait, hook, "
              "score"},
        Wrong{"material = \"\"\n",
              "4:12: material: is the text \"\"; it has to be a text that is not empty"},
        Wrong{"material = \"sine\"\nstart = -1\n",
              "5:9: start: is the number -1; it has to be a number from 0 to 1000000"},
        Wrong{"material = \"sine\"\nseconds = 0\n",
              "5:11: seconds: is the number 0; it has to be a number from 0.001 to 100000000"},
        Wrong{"material = \"sine\"\nseconds = nan\n",
              "5:11: seconds: is the number nan; it has to be a number from 0.001 to 100000000"},
        Wrong{"material = \"sine\"\nloop = 1\nseconds = 1\n",
              "5:8: loop: is the number 1; it has to be true or false"},
        Wrong{"material = \"a.hea\"\nloop = true\n",
              "5:8: loop: has no end; seconds says how long a loop plays"},
        Wrong{"material = \"a\"\nformat = \"mp3\"\n",
              "5:10: format: is the text \"mp3\"; it has to be one of wfdb, edf, edf-4, csv, "
              "aha, cse, native"},
        Wrong{"material = \"a\"\nmap = { MLII = \"X\" }\n",
              "5:7: map: is a table; it has to be a table SIGNAL = \"LEAD\" with the leads I, II, "
              "V1 to V6 and none"},
        Wrong{"material = \"a\"\nnoise = true\n",
              "5:9: noise: is true; it has to be a text that is not empty"},
        Wrong{"material = \"sine\"\nfrequency = 101\n",
              "5:13: frequency: is the number 101; it has to be a number from 0.01 to 100"},
        Wrong{"material = \"sine\"\namplitude = [1, 2]\n",
              "5:13: amplitude: is the list [1,2]; it has to be a number from -10 to 10, or a list "
              "of eight"},
        Wrong{"material = \"sine\"\nwidth = 1.5\n",
              "5:9: width: is the number 1.5; it has to be a whole number from 1 to 100000"},
        Wrong{"material = \"a\"\nsnr = 6\n",
              "5:7: snr: is given without noise-record; it is the ratio to a noise record"},
        Wrong{"material = \"a\"\nnoise-record = \"n\"\nsnr = 101\n",
              "6:7: snr: is the number 101; it has to be a number from -100 to 100"},
        Wrong{"material = \"a\"\nrequire-calibrated = \"yes\"\n",
              "5:22: require-calibrated: is the text \"yes\"; it has to be true or false"},
        Wrong{"material = \"a\"\nsha256 = { \"a.dat\" = \"12\" }\n",
              "5:10: sha256: is a table; it has to be a table \"FILE\" = \"64 hexadecimal "
              "digits\""},
        Wrong{"wait = 1\nrepeat = 0\n",
              "5:10: repeat: is the number 0; it has to be a whole number from 1 to 1000000"},
        Wrong{"wait = 1\npause = 1979-05-27\n",
              "5:9: pause: is a date or a time; it has to be a number from 0 to 100000000"},
        Wrong{"wait = 1\nrepeat = 2.0\n",
              "5:10: repeat: is the number 2.0; it has to be a whole number from 1 to 1000000"},
        Wrong{"wait = 1\nmatrix = 3\n",
              "5:10: matrix: is the number 3; it has to be a table FIELD = [value, value, ...]"},
        Wrong{"material = \"a\"\nmatrix = { noise = \"50HZ\" }\n",
              "5:20: matrix.noise: is the text \"50HZ\"; it has to be a list of at least one "
              "value"},
        Wrong{"material = \"a\"\nmatrix = { start = [1, 2, 1] }\n",
              "5:27: matrix.start: has the number 1 twice; every value appears once"},
        Wrong{"material = \"a\"\nmatrix = { start = [1, \"2\"] }\n",
              "5:24: matrix.start: is the text \"2\"; it has to be a number from 0 to 1000000"},
        Wrong{"material = \"a\"\nmatrix = { repeat = [1, 2] }\n",
              "5:12: matrix.repeat: is not a field that can vary; allowed are all fields of a "
              "step except name, matrix, repeat"},
        Wrong{
            "wait = 1\nmatrix = { start = [1, 2] }\n",
            "5:12: matrix.start: is not a field of a step of this kind; allowed are matrix, name, "
            "pause, repeat, wait"},
        Wrong{"material = \"a\"\ngain = \"2\"\n",
              "5:8: gain: is the text \"2\"; it has to be a number from -1000 to 1000, or a table "
              "LEAD = NUMBER with the leads I, II, V1 to V6"},
        Wrong{"material = \"a\"\ngain = { V7 = 2 }\n",
              "5:8: gain: is a table; it has to be a number from -1000 to 1000, or a table LEAD = "
              "NUMBER with the leads I, II, V1 to V6"},
        Wrong{"material = \"a\"\noffset = 1001\n",
              "5:10: offset: is the number 1001; it has to be a number from -1000 to 1000"},
        Wrong{"material = \"a\"\nmissing = \"skip\"\n",
              "5:11: missing: is the text \"skip\"; it has to be one of hold, zero"},
        Wrong{"material = \"a\"\nrate = 0\n",
              "5:8: rate: is the number 0; it has to be a number from 0.001 to 1000000"},
        Wrong{"material = \"a\"\nunit = \"V\"\n",
              "5:8: unit: is the text \"V\"; it has to be one of mV, uV"},
        Wrong{"material = \"a\"\nas-edf = 1\n",
              "5:10: as-edf: is the number 1; it has to be true or false"},
        Wrong{"score = 1\n",
              "4:9: score: is the number 1; it has to be a table { reference = FILE, test = FILE, "
              "FIGURE_min = NUMBER }"},
        Wrong{"score = { reference = \"a\" }\n",
              "4:9: score.test: is missing; a score has a reference and a test"},
        Wrong{"score = { reference = \"a\", test = 1 }\n",
              "4:35: score.test: is the number 1; it has to be a text that is not empty"},
        Wrong{"score = { reference = \"a\", test = \"b\", window = -1 }\n",
              "4:49: score.window: is the number -1; it has to be a number from 0 to 10000"},
        Wrong{"score = { reference = \"a\", test = \"b\", offset = 1e-99 }\n",
              "4:49: score.offset: is the number 1e-99; it has to be a number of fewer digits"},
        Wrong{"score = { reference = \"a\", test = \"b\", window = 1e-36 }\n",
              "4:49: score.window: is the number 1e-36; it has to be a number of fewer digits"},
        Wrong{"score = { reference = \"a\", test = \"b\", qrs_se_min = 99.5 }\n",
              "4:53: score.qrs_se_min: is the number 99.5; it has to be a number from 0 to 1"},
        Wrong{"score = { reference = \"a\", test = \"b\", align = true, offset = 1 }\n",
              "4:54: score.offset: is given together with align; the clock is stated or found"},
        Wrong{"wait = 1\nunit = \"s\"\n", "5:1: unit: is not a field of a step of the kind wait; "
                                          "allowed are matrix, name, pause, "
                                          "repeat, wait"},
        Wrong{"ask = \"?\"\nmin = 2\nmax = 1\n", "5:7: min: 2 is above max; a number up to 1"},
        Wrong{"ask = \"?\"\nmin = \"2\"\n", "5:7: min: is the text \"2\"; it has to be a number"},
        Wrong{"ask = \"?\"\nmax = inf\n", "5:7: max: is the number inf; it has to be a number"},
        Wrong{"ask = \"?\"\nunit = 1\n", "5:8: unit: is the number 1; it has to be a text"},
        Wrong{"ask = \"?\"\nchoices = []\n",
              "5:11: choices: is the list []; it has to be a list of texts that are not empty"},
        Wrong{"ask = \"?\"\nchoices = [\"pass\"]\nunit = \"V\"\n",
              "5:11: choices: are given together with unit, min or max; a question has choices or "
              "limits"},
        Wrong{"hook = \"x\"\n",
              "4:8: hook: is the text \"x\"; it has to be a list of texts that are not empty"},
        Wrong{"hook = [\"x\"]\ntimeout = 0\n",
              "5:11: timeout: is the number 0; it has to be a number from 0.1 to 100000000"}));

TEST_F(PlanReaderTest, AFieldThatIsNoneIsRefusedWithThoseThatAre) {
    EXPECT_EQ(ErrorsInStep("material = \"a\"\ncolour = 1\n"),
              std::string("p.toml:5:1: colour: is not a field of a step of the kind material; "
                          "allowed are ") +
                  kMaterialFields + "\n");
}

TEST_F(PlanReaderTest, ATitleIsAText) {
    EXPECT_EQ(ErrorsIn("title = 1\n[[step]]\nname = \"s\"\nwait = 1\n"),
              "p.toml:1:9: title: is the number 1; it has to be a text that is not empty\n");
}

TEST_F(PlanReaderTest, NamesAreUnique) {
    EXPECT_EQ(ErrorsIn("title = \"t\"\n[[step]]\nname = \"s\"\nwait = 1\n"
                       "[[step]]\nname = \"s\"\nwait = 1\n"),
              "p.toml:6:8: name: \"s\" is the name of the step in line 3 too; every step has a "
              "name of its own\n");
}

TEST_F(PlanReaderTest, APlanHasSteps) {
    EXPECT_EQ(ErrorsIn("title = \"t\"\n"),
              "p.toml:1:1: step: is missing; every plan has at least one [[step]]\n");
    EXPECT_EQ(ErrorsIn("title = \"t\"\nstep = 1\n"),
              "p.toml:2:8: step: is the number 1; it has to be a list of tables, each headed "
              "[[step]]\n");
}

TEST_F(PlanReaderTest, DefaultsAreFieldsOfSteps) {
    EXPECT_EQ(ErrorsIn("title = \"t\"\ndefaults = 1\n[[step]]\nname = \"s\"\nwait = 1\n"),
              "p.toml:2:12: defaults: is the number 1; it has to be a table\n");
    EXPECT_EQ(ErrorsIn("title = \"t\"\n[defaults]\npause = true\n[[step]]\nname = \"s\"\n"
                       "wait = 1\n"),
              "p.toml:3:9: pause: is true; it has to be a number from 0 to 100000000\n");
    const std::string unknown =
        ErrorsIn("title = \"t\"\n[defaults]\nname = \"x\"\n[[step]]\nname = \"s\"\nwait = 1\n");
    EXPECT_EQ(
        unknown.rfind(
            "p.toml:3:1: name: belongs to each step itself; allowed are amplitude, as-edf, ask, ",
            0),
        0U)
        << unknown;
}

TEST_F(PlanReaderTest, AFileThatIsNoTomlIsToldWithItsPlace) {
    const std::string errors = ErrorsIn("title = \"t\"\n[[step]\n");
    EXPECT_EQ(errors.rfind("p.toml:2:", 0), 0U) << errors;
    EXPECT_NE(errors.find(": TOML: "), std::string::npos) << errors;
}

// Letters outside ASCII, one of each kind that the parser has to distinguish from white space.
TEST_F(PlanReaderTest, LettersThatNoKeyMayHaveAreTold) {
    for (const std::string letter : {"\u00E9", "\u0416", "\u3042", "\uFCFF"}) {
        EXPECT_EQ(ErrorsIn("title = \"t\"\n" + letter + " = 1\n"),
                  "p.toml:2:1: TOML: Error while parsing root table: expected keys, tables, "
                  "whitespace or comments, saw '" +
                      letter + "'; a plan is a TOML file\n");
    }
}

TEST_F(PlanReaderTest, APlanThatIsMissingIsTheCommandLinesFault) {
    try {
        ReadPlan(m_scratch / "none.toml");
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), kUsage);
    }
}
