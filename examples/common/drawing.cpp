#include "examples/common/drawing.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <vector>

namespace example {

DrawingSession::DrawingSession() {
  const Gdiplus::GdiplusStartupInput input;
  if (Gdiplus::GdiplusStartup(&m_token, &input, nullptr) != Gdiplus::Ok) {
    m_token = 0;
  }
}

DrawingSession::~DrawingSession() {
  if (m_token != 0) {
    Gdiplus::GdiplusShutdown(m_token);
  }
}

bool SavePng(Gdiplus::Image& image, const std::wstring& path) {
  UINT count = 0;
  UINT size = 0;
  if (Gdiplus::GetImageEncodersSize(&count, &size) != Gdiplus::Ok || size == 0) {
    return false;
  }
  // The table of encoders is followed by the texts it points to, all in one block.
  std::vector<std::max_align_t> block(size / sizeof(std::max_align_t) + 1);
  auto* codecs = reinterpret_cast<Gdiplus::ImageCodecInfo*>(block.data());
  if (Gdiplus::GetImageEncoders(count, size, codecs) != Gdiplus::Ok) {
    return false;
  }
  for (UINT i = 0; i < count; ++i) {
    if (std::wcscmp(codecs[i].MimeType, L"image/png") == 0) {
      return image.Save(path.c_str(), &codecs[i].Clsid, nullptr) == Gdiplus::Ok;
    }
  }
  return false;
}

std::unique_ptr<Gdiplus::Font> UserFont(float pixels, bool bold) {
  const INT style = bold ? Gdiplus::FontStyleBold : Gdiplus::FontStyleRegular;
  for (const wchar_t* name : {L"Segoe UI", L"Tahoma", L"DejaVu Sans", L"Liberation Sans", L"Arial"}) {
    const Gdiplus::FontFamily family(name);
    if (family.IsAvailable()) {
      return std::make_unique<Gdiplus::Font>(&family, pixels, style, Gdiplus::UnitPixel);
    }
  }
  // Any will do then. GDI+'s own generic family is not asked for: where it is missing, its use ends in a null pointer.
  const Gdiplus::InstalledFontCollection installed;
  std::vector<Gdiplus::FontFamily> families(static_cast<std::size_t>(std::max(installed.GetFamilyCount(), 0)));
  INT found = 0;
  installed.GetFamilies(static_cast<INT>(families.size()), families.data(), &found);
  for (INT i = 0; i < found; ++i) {
    const Gdiplus::FontFamily& family = families[static_cast<std::size_t>(i)];
    if (family.IsStyleAvailable(style)) {
      return std::make_unique<Gdiplus::Font>(&family, pixels, style, Gdiplus::UnitPixel);
    }
  }
  return nullptr;
}

void DrawLine(Gdiplus::Graphics& graphics, const std::wstring& text, const Gdiplus::Font* font, Gdiplus::RectF box,
              Gdiplus::Color color, Gdiplus::StringAlignment alignment) {
  if (font == nullptr) {
    return;
  }
  Gdiplus::StringFormat format;
  format.SetAlignment(alignment);
  format.SetLineAlignment(Gdiplus::StringAlignmentCenter);
  format.SetTrimming(Gdiplus::StringTrimmingEllipsisCharacter);
  format.SetFormatFlags(Gdiplus::StringFormatFlagsNoWrap);
  const Gdiplus::SolidBrush brush(color);
  graphics.DrawString(text.c_str(), static_cast<INT>(text.size()), font, box, &format, &brush);
}

void FillRounded(Gdiplus::Graphics& graphics, Gdiplus::RectF box, float radius, Gdiplus::Color color) {
  const float d = radius * 2;
  const float right = box.X + box.Width - d;
  const float bottom = box.Y + box.Height - d;
  Gdiplus::GraphicsPath path;
  path.AddArc(box.X, box.Y, d, d, 180, 90);
  path.AddArc(right, box.Y, d, d, 270, 90);
  path.AddArc(right, bottom, d, d, 0, 90);
  path.AddArc(box.X, bottom, d, d, 90, 90);
  path.CloseFigure();
  const Gdiplus::SolidBrush brush(color);
  graphics.FillPath(&brush, &path);
}

Gdiplus::Color Rgb(unsigned rgb, unsigned alpha) {
  return Gdiplus::Color(static_cast<BYTE>(alpha), static_cast<BYTE>(rgb >> 16), static_cast<BYTE>(rgb >> 8),
                        static_cast<BYTE>(rgb));
}

} // namespace example
