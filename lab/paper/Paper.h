#pragma once

#include <string>
#include <vector>

struct _cairo;
struct _cairo_surface;

namespace lab {

struct Point {
    double x;
    double y;
};

struct Rectangle {
    double x;
    double y;
    double width;
    double height;
};

struct Colour {
    double red;
    double green;
    double blue;
};

enum class Align { kLeft, kCentre, kRight };

struct TextStyle {
    double height; // millimetres
    Colour colour;
    Align align = Align::kLeft;
    bool isBold = false;
    bool hasHalo = false; // keeps text legible where traces cross it
};

// A sheet to draw on; every measure is millimetres from its upper left corner. The file's type
// follows its suffix: .png at 8 dots a millimetre, .svg or .pdf.
class Paper {
  public:
    // Fails for any other suffix, and when the sheet is too large for an image.
    Paper(const std::string& path, double width, double height);
    ~Paper();
    Paper(const Paper&) = delete;
    Paper& operator=(const Paper&) = delete;

    // Draws millimetre paper; the rectangle's sides are multiples of 5 mm.
    void DrawGrid(const Rectangle& area);

    // Draws a line through the points, clipped at the rectangle's edges.
    void DrawTrace(const std::vector<Point>& points, const Rectangle& clip, const Colour& colour,
                   double width);

    // Draws text on a base line that begins, is centred or ends at `at`.
    void DrawText(const std::string& text, const Point& at, const TextStyle& style);

    double TextWidth(const std::string& text, const TextStyle& style) const;

    // The text, or three dots and its end when it is wider than `room`.
    std::string Fitted(const std::string& text, double room, const TextStyle& style) const;

    // Starts a new sheet; for .pdf only.
    void NextPage();

    // Writes the file, or fails.
    void Finish();

  private:
    void PaintSheet();

    std::string m_path;
    bool m_isImage;
    _cairo_surface* m_surface = nullptr;
    _cairo* m_context = nullptr;
};

} // namespace lab
