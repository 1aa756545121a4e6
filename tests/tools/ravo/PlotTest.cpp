#include "CommandLine.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace {

constexpr int kDotsPerMillimetre = 8;

// Where the paper begins, in millimetres: the margin and the calibration pulse precede it.
constexpr double kTraceLeft = 31.0;
constexpr double kGridLeft = 16.0;
constexpr double kGridTop = 26.0;

class Image {
  public:
    explicit Image(const std::string& path)
        : m_surface(cairo_image_surface_create_from_png(path.c_str())) {
        if (cairo_surface_status(m_surface) != CAIRO_STATUS_SUCCESS) {
            throw std::runtime_error(path + " is no image");
        }
    }
    ~Image() { cairo_surface_destroy(m_surface); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    int Width() const { return cairo_image_surface_get_width(m_surface); }
    int Height() const { return cairo_image_surface_get_height(m_surface); }

    // Whether there is ink within half a millimetre of the place.
    bool HasInk(double x, double y) const {
        for (int dy = -4; dy <= 4; ++dy) {
            for (int dx = -4; dx <= 4; ++dx) {
                if (Brightness(Dot(x) + dx, Dot(y) + dy) < 0x60) {
                    return true;
                }
            }
        }
        return false;
    }

    // Of the darkest colour component, 0 to 255.
    int Brightness(int x, int y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(m_surface) +
            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(m_surface);
        const unsigned char* dot = row + static_cast<std::ptrdiff_t>(x) * 4;
        return std::max({dot[0], dot[1], dot[2]});
    }

    // The widest stretch without text, in millimetres, of a band across the sheet.
    double WidestGap(double top, double bottom, double left, double right) const {
        int widest = 0;
        int gap = 0;
        for (int x = Dot(left); x < Dot(right); ++x) {
            bool isBlank = true;
            for (int y = Dot(top); y < Dot(bottom); ++y) {
                isBlank = isBlank && Brightness(x, y) > 0xD0;
            }
            gap = isBlank ? gap + 1 : 0;
            widest = std::max(widest, gap);
        }
        return static_cast<double>(widest) / kDotsPerMillimetre;
    }

    // How much redder than blue a dot is: the grid's lines, and the heavy ones more.
    int Redness(double x, double y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(m_surface) +
            static_cast<std::ptrdiff_t>(Dot(y)) * cairo_image_surface_get_stride(m_surface);
        const unsigned char* dot = row + static_cast<std::ptrdiff_t>(Dot(x)) * 4;
        return dot[2] - dot[0];
    }

  private:
    static int Dot(double millimetres) {
        return static_cast<int>(std::lround(millimetres * kDotsPerMillimetre));
    }

    cairo_surface_t* m_surface;
};

class PlotTest : public testing::Test {
  protected:
    std::string Plot(std::vector<std::string> arguments, const std::string& name = "p.png") const {
        const std::string path = m_directory / name;
        arguments.insert(arguments.begin(), "plot");
        arguments.insert(arguments.end(), {"-o", path});
        const Result result = Ravo(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, path + "\n");
        return path;
    }

    Scratch m_directory;
};

} // namespace

// 10 s at 25 mm/s and 15 mm for the pulse, 16 mm at each side; four rows of 40 mm.
TEST_F(PlotTest, TwelveLeadsFillOneSheetOfA4) {
    const Image image(Plot({"sine"}));
    EXPECT_EQ(image.Width(), 297 * kDotsPerMillimetre);
    EXPECT_EQ(image.Height(), 210 * kDotsPerMillimetre);
}

// The description of the treatment needs more room than there is: the scale is printed
// nevertheless.
TEST_F(PlotTest, ScaleStandsWholeBesideALongTreatment) {
    const Image plain(Plot({"sine"}));
    std::vector<std::string> treated = {"sine", "--offset", "0.125", "--noise", "50HZ"};
    for (const char* gain : {"I=1.011", "II=1.012", "V1=1.013", "V2=1.014", "V3=1.015", "V4=1.016",
                             "V5=1.017", "V6=1.018"}) {
        treated.insert(treated.end(), {"--gain", gain});
    }
    const Image image(Plot(treated, "t.png"));
    int ink = 0;
    for (int y = 190 * kDotsPerMillimetre; y < 196 * kDotsPerMillimetre; ++y) {
        for (int x = 0; x < 140 * kDotsPerMillimetre; ++x) {
            if (plain.Brightness(x, y) < 0x60) {
                ASSERT_LT(image.Brightness(x, y), 0x60) << x << " " << y;
                ++ink;
            }
        }
    }
    EXPECT_GT(ink, 1000);
    EXPECT_GT(image.WidestGap(190, 196, 282, 297), 14.0); // the margin stays white
}

TEST_F(PlotTest, GridHasALineEachMillimetreAndAHeavyOneEachFive) {
    const Image image(Plot({"sine", "--frequency", "0.5", "--amplitude", "0.2"}));
    const double y = kGridTop + 2.5; // away from the horizontal lines
    for (int x = 1; x < 250; ++x) {
        // A fine line is the one dot before its position.
        const int redness = image.Redness(kGridLeft + x - 0.125, y);
        if (x % 5 == 0) {
            EXPECT_GT(redness, 60) << x;
        } else {
            EXPECT_GT(redness, 20) << x;
            EXPECT_LT(redness, 60) << x;
        }
        EXPECT_LT(image.Redness(kGridLeft + x + 0.5, y), 20) << x;
    }
}

// A square wave of 1 Hz and 2 mV: +10 mm in the first half of each second, -10 mm in the second,
// at 25 mm a second. The first row's base line lies 20 mm below the grid's upper edge.
TEST_F(PlotTest, OneMillivoltIsTenMillimetresAndOneSecondTwentyFive) {
    const Image image(Plot({"square", "--frequency", "1", "--amplitude", "2"}));
    const double baseLine = kGridTop + 20.0;
    for (int second = 0; second < 2; ++second) {
        const double x = kTraceLeft + 25.0 * second;
        EXPECT_TRUE(image.HasInk(x + 6.0, baseLine - 10.0));
        EXPECT_FALSE(image.HasInk(x + 6.0, baseLine + 10.0));
        EXPECT_TRUE(image.HasInk(x + 18.0, baseLine + 10.0));
        EXPECT_FALSE(image.HasInk(x + 18.0, baseLine - 10.0));
    }
}

// 2 mV at 20 mm/mV are 40 mm, for which rows of 30 mm grow to 45 mm; their base lines are heavy
// lines.
TEST_F(PlotTest, SpeedAndGainScaleTheTrace) {
    const Image image(Plot({"square", "--frequency", "1", "--amplitude", "2", "--speed", "50",
                            "--paper-gain", "20", "--layout", "12x1"}));
    EXPECT_EQ(image.Width(), 297 * kDotsPerMillimetre); // 5 s
    EXPECT_EQ(image.Height(), (12 * 45 + 50) * kDotsPerMillimetre);
    const double baseLine = kGridTop + 70.0; // for lead II, the second row
    EXPECT_TRUE(image.HasInk(kTraceLeft + 12.0, baseLine - 20.0));
    EXPECT_FALSE(image.HasInk(kTraceLeft + 12.0, baseLine));
    EXPECT_TRUE(image.HasInk(kTraceLeft + 37.0, baseLine + 20.0));
}

// The pulse: 1 mV high and 5 mm wide, from 5 mm right of the grid's left edge on.
TEST_F(PlotTest, EachRowBeginsWithTheCalibrationPulse) {
    const Image image(Plot({"sine"}));
    for (int row = 0; row < 4; ++row) {
        const double baseLine = kGridTop + 20.0 + 40.0 * row;
        EXPECT_TRUE(image.HasInk(kGridLeft + 3.5, baseLine));
        EXPECT_TRUE(image.HasInk(kGridLeft + 7.5, baseLine - 10.0));
        EXPECT_FALSE(image.HasInk(kGridLeft + 7.5, baseLine));
        EXPECT_TRUE(image.HasInk(kGridLeft + 11.5, baseLine));
    }
}

// One signal, lead V1, at 0.5 mV: its trace lies 5 mm above its base line, and lead II, which is
// missing, has no line at all.
TEST_F(PlotTest, LeadThatIsNotSuppliedIsNotDrawn) {
    m_directory.Write("v.dat", Format16(std::vector<int16_t>(1000, 500)));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 1000\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    const Image image(Plot({path, "--layout", "12x1"}));
    const double x = kTraceLeft + 125.0;
    const double rowOfV1 = kGridTop + 6 * 15.0;
    EXPECT_TRUE(image.HasInk(x, rowOfV1 + 10.0 - 5.0));
    for (double y = 0.0; y < 89.0; y += 0.5) {
        EXPECT_FALSE(image.HasInk(x, kGridTop + y)) << y;
    }
}

// 10 s at 0.5 mV, of which the fourth and fifth second are missing and play as held samples.
TEST_F(PlotTest, MissingSamplesLeaveAGap) {
    std::vector<int16_t> samples(1000, 500);
    std::fill(samples.begin() + 300, samples.begin() + 500, int16_t{-32768});
    m_directory.Write("v.dat", Format16(samples));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 1000\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    const Image image(Plot({path, "--layout", "12x1"}));
    const double y = kGridTop + 6 * 15.0 + 10.0 - 5.0;
    EXPECT_TRUE(image.HasInk(kTraceLeft + 70.0, y));
    EXPECT_FALSE(image.HasInk(kTraceLeft + 100.0, y));
    EXPECT_TRUE(image.HasInk(kTraceLeft + 130.0, y));
}

// A window of 2 s within the 4 s that are missing: a row that would be empty states this.
TEST_F(PlotTest, WindowWithinAGapIsMarkedAsMissing) {
    std::vector<int16_t> samples(1000, 500);
    std::fill(samples.begin() + 200, samples.begin() + 600, int16_t{-32768});
    m_directory.Write("v.dat", Format16(samples));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 1000\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    // The line of the name in a row of 30 mm: 9.6 mm above the base line, beginning with the trace.
    const auto isMarked = [&](const char* start) {
        const Image image(Plot({path, "--start", start, "--seconds", "2"}));
        const double line = kGridTop + 15.0 - 9.6;
        return image.WidestGap(line - 2.0, line, kTraceLeft + 1.0, kTraceLeft + 12.0) < 5.0;
    };
    EXPECT_TRUE(isMarked("3"));
    EXPECT_FALSE(isMarked("5"));
    EXPECT_FALSE(isMarked("0"));
}

// Alternately 1 mV and -1 mV for 1.25 s on II, nothing on I: lead II falls where the cell of lead
// aVL begins. No ink joins the two, and none stands beside the base line of III where aVF begins.
TEST_F(PlotTest, LeadsOnOneRowDoNotRunIntoEachOther) {
    std::vector<int16_t> samples;
    for (int n = 0; n < 1000; ++n) {
        samples.insert(samples.end(), 8, 0);
        samples[samples.size() - 7] = n / 125 % 2 == 0 ? 1000 : -1000;
    }
    m_directory.Write("t.dat", Format16(samples));
    std::string header = "t 8 100 1000\n";
    for (const char* lead : {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"}) {
        header += std::string("t.dat 16 1000/mV 16 0 0 0 0 ") + lead + "\n";
    }
    const Image image(Plot({m_directory.Write("t.hea", header)}));
    const double seam = kTraceLeft + 62.5;
    const auto baseLine = [](int row) { return kGridTop + 20.0 + 40.0 * row; };
    EXPECT_TRUE(image.HasInk(seam - 31.25, baseLine(1))); // II falls in its own cell
    for (const double y : {-8.5, -4.0, 4.0, 8.5}) {
        EXPECT_FALSE(image.HasInk(seam, baseLine(1) + y)) << y;
    }
    for (const double y : {-4.0, 4.0}) {
        EXPECT_FALSE(image.HasInk(seam, baseLine(0) + y)) << y;
    }
}

TEST_F(PlotTest, FewLeadsBecomeStrips) {
    m_directory.Write("v.dat", Format16(std::vector<int16_t>(2500, 500)));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 2500\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    const Image image(Plot({path, "--seconds", "25"}));
    EXPECT_EQ(image.Width(), 297 * kDotsPerMillimetre);
    EXPECT_EQ(image.Height(), (3 * 30 + 50) * kDotsPerMillimetre); // three strips of 10 s
}

TEST_F(PlotTest, ShorterRecordMakesANarrowerSheet) {
    m_directory.Write("v.dat", Format16(std::vector<int16_t>(800, 500)));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 800\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    EXPECT_EQ(Image(Plot({path})).Width(), (32 + 15 + 200) * kDotsPerMillimetre);
}

// Between the texts at the left and those at the right, of the heading's two lines and of the
// footing's one, the sheet is blank, and so are the margins beside them.
TEST_F(PlotTest, TextsStandClearOfEachOther) {
    const std::string folder(150, 'd');
    m_directory.Write(folder + "/v.dat", Format16(std::vector<int16_t>(200, 500)));
    const std::string path =
        m_directory.Write(folder + "/v.hea", "v 1 100 200\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    for (const char* seconds : {"0.1", "1", "2"}) {
        const Image image(Plot({path, "--seconds", seconds}));
        const double width = static_cast<double>(image.Width()) / kDotsPerMillimetre;
        const double footing = static_cast<double>(image.Height()) / kDotsPerMillimetre - 16.0;
        for (const double line : {13.0, 20.0, footing}) {
            EXPECT_GE(image.WidestGap(line - 4.0, line + 1.0, kGridLeft, width - kGridLeft), 4.0)
                << seconds << " s, line at " << line;
            EXPECT_GE(image.WidestGap(line - 4.0, line + 1.0, 0.0, kGridLeft - 0.5), 15.0);
            EXPECT_GE(image.WidestGap(line - 4.0, line + 1.0, width - kGridLeft + 0.5, width),
                      15.0);
        }
    }
}

// Less than a second for each lead shows little.
TEST_F(PlotTest, ShortTwelveLeadsStandBelowEachOther) {
    const auto height = [this](const char* seconds) {
        return Image(Plot({"sine", "--seconds", seconds})).Height() / kDotsPerMillimetre;
    };
    EXPECT_EQ(height("1"), 12 * 15 + 50);
    EXPECT_EQ(height("3.9"), 12 * 15 + 50);
    EXPECT_EQ(height("4"), 4 * 40 + 50);
}

// Rows of 30 mm hold 1.4 mV up and down and a gap; they grow by whole squares, with one to spare,
// up to twice that before the gain goes down.
TEST_F(PlotTest, TallSignalsGetTallerRowsThenLessGain) {
    const auto height = [this](int16_t microvolts, std::vector<std::string> options) {
        std::vector<int16_t> samples(1000, microvolts);
        for (std::size_t n = 0; n < samples.size(); n += 2) {
            samples[n] = static_cast<int16_t>(-microvolts);
        }
        m_directory.Write("v.dat", Format16(samples));
        options.insert(options.begin(), m_directory.Write("v.hea", "v 1 100 1000\nv.dat 16 1000/mV "
                                                                   "16 0 0 0 0 V1\n"));
        return Image(Plot(options)).Height() / kDotsPerMillimetre - 50;
    };
    EXPECT_EQ(height(1400, {}), 30);
    EXPECT_EQ(height(1500, {}), 35);
    EXPECT_EQ(height(2000, {}), 45); // 40 mm at 10 mm/mV
    EXPECT_EQ(height(4000, {}), 45); // 80 mm would be too tall: 40 mm at 5 mm/mV
    EXPECT_EQ(height(4000, {"--paper-gain", "10"}), 85); // as asked for
}

TEST_F(PlotTest, ALeadThatIsNotSuppliedIsRefused) {
    m_directory.Write("v.dat", Format16(std::vector<int16_t>(100, 500)));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 100\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    const Result result = Ravo({"plot", path, "-o", m_directory / "p.png", "--lead", "V2"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ravo: --lead V2: is not supplied by this material.\n"
                          "      \"ravo info\" lists the leads that are.\n");
}

// Strips of 10 s and 30 mm: five of them fit between the margins of a sheet of A4, 842 by 595
// points. Twelve rows of 15 mm are shared out evenly.
TEST_F(PlotTest, LongDocumentsGoOnOnTheNextSheet) {
    m_directory.Write("v.dat", Format16(std::vector<int16_t>(12000, 500)));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 12000\nv.dat 16 1000/mV 16 0 0 0 0 V1\n");
    const auto pages = [this, &path](const char* seconds) {
        const std::string file = Plot({path, "--seconds", seconds}, "p.pdf");
        const Result told = Process("/usr/bin/pdfinfo", {file}).Wait();
        const std::size_t at = told.out.find("Pages:");
        return at == std::string::npos ? 0 : std::atoi(&told.out[at + 6]);
    };
    if (pages("1") == 0) {
        GTEST_SKIP() << "pdfinfo, which counts the pages, is not installed";
    }
    EXPECT_EQ(pages("50"), 1);
    EXPECT_EQ(pages("120"), 3);
    for (const char* layout : {"3x4", "12x1"}) {
        const std::string file = Plot({"sine", "--layout", layout}, "p.pdf");
        const Result told = Process("/usr/bin/pdfinfo", {file}).Wait();
        EXPECT_NE(told.out.find("(A4)"), std::string::npos) << told.out;
        const char* const wanted = layout[0] == '3' ? "Pages:           1" : "Pages:           2";
        EXPECT_NE(told.out.find(wanted), std::string::npos) << told.out;
    }
}

TEST_F(PlotTest, WritesSvgAndPdf) {
    EXPECT_EQ(ReadFile(Plot({"sine"}, "p.svg")).rfind("<?xml", 0), 0U);
    EXPECT_EQ(ReadFile(Plot({"sine", "--layout", "6x2"}, "p.PDF")).rfind("%PDF", 0), 0U);
}

TEST_F(PlotTest, ComparisonDrawsBoth) {
    const Result made = MakeRecord({m_directory / "demo"});
    ASSERT_EQ(made.status, 0) << made.err;
    // The demonstration's eight leads are used as outputs; only the picture matters here.
    const Image image(Plot({m_directory / "demo.hea", "--compare", m_directory / "demo.hea"}));
    EXPECT_EQ(image.Width(), 297 * kDotsPerMillimetre);
}

TEST_F(PlotTest, RefusesWhatItCannotWrite) {
    for (const char* name : {"p.png", "p.svg", "p.pdf"}) {
        const Result result = Ravo({"plot", "sine", "-o", "/no/such/place/" + std::string(name)});
        EXPECT_EQ(result.status, 6) << name << result.err;
        EXPECT_NE(result.err.find("cannot be written: No such file or directory."),
                  std::string::npos)
            << result.err;
    }
}

TEST_F(PlotTest, RefusesAnImageThatIsTooLarge) {
    const Result result =
        Ravo({"plot", "sine", "-o", m_directory / "p.png", "--seconds", "2000", "--layout", "3x4"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("more than an image holds"), std::string::npos) << result.err;
}

TEST_F(PlotTest, RefusesMaterialWithoutALead) {
    m_directory.Write("v.dat", Format16({1, 2, 3}));
    const std::string path =
        m_directory.Write("v.hea", "v 1 100 3\nv.dat 16 1000/mV 16 0 0 0 0 RESP\n");
    const Result result = Ravo({"plot", path, "-o", m_directory / "p.png"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("has no signal whose description names a lead"), std::string::npos);
}

TEST_F(PlotTest, RefusesAStartBehindTheEnd) {
    const Result result =
        Ravo({"plot", "calibration", "-o", m_directory / "p.png", "--start", "10"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("is past the end: calibration lasts 10.000 s"), std::string::npos)
        << result.err;
}
