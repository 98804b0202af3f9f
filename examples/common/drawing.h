#pragma once

#include <windows.h>
// Behind windows.h: GDI+ needs its types.
#include <objidl.h>

#include <gdiplus.h>

#include <memory>
#include <string>

namespace example {

/// Keeps GDI+ running. One object for each program, made before anything is drawn and destroyed after everything drawn
/// is gone.
class DrawingSession {
public:
  DrawingSession();
  ~DrawingSession();
  DrawingSession(const DrawingSession&) = delete;
  DrawingSession& operator=(const DrawingSession&) = delete;

  /// Whether GDI+ started.
  bool IsReady() const { return m_token != 0; }

private:
  ULONG_PTR m_token = 0;
};

/// Writes an image as a PNG file, replacing an earlier one. False when that failed. Blocks for the file.
bool SavePng(Gdiplus::Image& image, const std::wstring& path);

/// A font of the system's user interface with that height in pixels, or the nearest that there is. Null on a system
/// without any font.
std::unique_ptr<Gdiplus::Font> UserFont(float pixels, bool bold);

/// Writes one line of text into a box, centred from top to bottom, cut with dots where it is too long. Writes nothing
/// without a font.
void DrawLine(Gdiplus::Graphics& graphics, const std::wstring& text, const Gdiplus::Font* font, Gdiplus::RectF box,
              Gdiplus::Color color, Gdiplus::StringAlignment alignment);

/// Fills a box with rounded corners of that radius in pixels.
void FillRounded(Gdiplus::Graphics& graphics, Gdiplus::RectF box, float radius, Gdiplus::Color color);

/// A colour from its 0xRRGGBB number.
Gdiplus::Color Rgb(unsigned rgb, unsigned alpha = 255);

} // namespace example
