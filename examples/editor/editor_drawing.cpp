#include "examples/common/text.h"
#include "examples/editor/editor.h"

#include <algorithm>
#include <cmath>

namespace example {
namespace {

constexpr int kStatusHeight = 28;
constexpr float kMargin = 16.0F;

// What is drawn where no window says how large it is to be.
constexpr int kDefaultWidth = 800;
constexpr int kDefaultHeight = 600;

struct Theme {
  unsigned ground;
  unsigned bar;
  unsigned text;
  unsigned faint;
};

constexpr Theme kLight{0xEEF1F5, 0xFFFFFF, 0x1F2933, 0x6B7785};
constexpr Theme kDark{0x1B1F24, 0x262B31, 0xE6EAEE, 0x98A2AD};
constexpr unsigned kAccent = 0x2F6FDE;

} // namespace

void Editor::Refresh() {
  if (!m_isOpen) {
    return;
  }
  const bool hasPlace = m_window != nullptr && !IsRectEmpty(&m_placed);
  const int width = hasPlace ? m_placed.right - m_placed.left : kDefaultWidth;
  const int height = hasPlace ? m_placed.bottom - m_placed.top : kDefaultHeight;
  m_canvas = std::make_unique<Gdiplus::Bitmap>(width, height, PixelFormat32bppPARGB);
  {
    Gdiplus::Graphics graphics(m_canvas.get());
    graphics.SetSmoothingMode(Gdiplus::SmoothingModeAntiAlias);
    graphics.SetTextRenderingHint(Gdiplus::TextRenderingHintAntiAliasGridFit);
    graphics.Clear(Rgb((m_isDark ? kDark : kLight).ground));
    const int bar = height > 4 * kStatusHeight ? kStatusHeight : 0;
    const Gdiplus::RectF area(0, 0, static_cast<float>(width), static_cast<float>(height - bar));
    DrawPicture(graphics, area);
    if (bar != 0) {
      DrawStatus(graphics, Gdiplus::RectF(0, area.Height, area.Width, static_cast<float>(bar)));
    }
    if (m_isAsking) {
      DrawQuestion(graphics, area);
    }
  }
  if (!m_options.snapshot.empty()) {
    SavePng(*m_canvas, m_options.snapshot);
  }
  if (m_window != nullptr) {
    InvalidateRect(m_window, nullptr, FALSE);
    UpdateWindow(m_window);
  }
}

void Editor::Paint() {
  PAINTSTRUCT paint;
  const HDC context = BeginPaint(m_window, &paint);
  if (m_canvas) {
    Gdiplus::Graphics graphics(context);
    graphics.SetInterpolationMode(Gdiplus::InterpolationModeNearestNeighbor);
    graphics.SetCompositingMode(Gdiplus::CompositingModeSourceCopy);
    graphics.DrawImage(m_canvas.get(), 0, 0, static_cast<INT>(m_canvas->GetWidth()),
                       static_cast<INT>(m_canvas->GetHeight()));
  }
  EndPaint(m_window, &paint);
  GdiFlush();
  if (m_canvas && m_picture.IsLoaded() && !m_isShownReported) {
    m_isShownReported = true;
    Send("custom_message", "picture_shown", true);
  }
}

void Editor::DrawPicture(Gdiplus::Graphics& graphics, Gdiplus::RectF area) {
  const Theme& theme = m_isDark ? kDark : kLight;
  if (!m_picture.IsLoaded()) {
    const auto font = UserFont(16, false);
    DrawLine(graphics, L"This file cannot be shown as a picture: " + FileName(m_path), font.get(), area,
             Rgb(theme.text), Gdiplus::StringAlignmentCenter);
    return;
  }
  const float pictureWidth = static_cast<float>(m_picture.Width());
  const float pictureHeight = static_cast<float>(m_picture.Height());
  const float margin = m_isFullScreen ? 0.0F : kMargin;
  const float roomWidth = std::max(area.Width - 2 * margin, 1.0F);
  const float roomHeight = std::max(area.Height - 2 * margin, 1.0F);
  const float scale = std::min(roomWidth / pictureWidth, roomHeight / pictureHeight) * m_zoom;
  const float width = std::max(std::round(pictureWidth * scale), 1.0F);
  const float height = std::max(std::round(pictureHeight * scale), 1.0F);
  const Gdiplus::RectF box(std::round((area.Width - width) / 2), std::round((area.Height - height) / 2), width, height);

  const Gdiplus::GraphicsState state = graphics.Save();
  graphics.SetClip(area);
  for (int i = 6; i > 0; --i) {
    const float d = static_cast<float>(i);
    FillRounded(graphics, Gdiplus::RectF(box.X - d, box.Y - d + 2, box.Width + 2 * d, box.Height + 2 * d), d + 1,
                Rgb(0x000000, 10));
  }
  m_picture.Draw(graphics, box);
  graphics.Restore(state);
}

void Editor::DrawStatus(Gdiplus::Graphics& graphics, Gdiplus::RectF bar) {
  const Theme& theme = m_isDark ? kDark : kLight;
  const Gdiplus::SolidBrush ground(Rgb(theme.bar));
  graphics.FillRectangle(&ground, bar);

  std::wstring left = FileName(m_path);
  if (m_picture.IsLoaded()) {
    left += L"   " + std::to_wstring(m_picture.Width()) + L" \u00D7 " + std::to_wstring(m_picture.Height());
  }
  std::wstring right = FileName(ProgramPath());
  if (m_isRecovered) {
    right = L"Reopened   " + right;
  }
  if (m_isModified) {
    right = L"Unsaved changes   " + right;
  }
  const auto font = UserFont(13, false);
  const Gdiplus::RectF half(bar.X + 12, bar.Y, bar.Width / 2 - 18, bar.Height);
  DrawLine(graphics, left, font.get(), half, Rgb(theme.text), Gdiplus::StringAlignmentNear);
  const Gdiplus::RectF other(bar.X + bar.Width / 2 + 6, bar.Y, bar.Width / 2 - 18, bar.Height);
  DrawLine(graphics, right, font.get(), other, Rgb(theme.faint), Gdiplus::StringAlignmentFar);
}

void Editor::DrawQuestion(Gdiplus::Graphics& graphics, Gdiplus::RectF area) {
  const Theme& theme = m_isDark ? kDark : kLight;
  const Gdiplus::SolidBrush veil(Rgb(0x000000, 120));
  graphics.FillRectangle(&veil, area);

  const float width = std::min(area.Width, 440.0F);
  const Gdiplus::RectF box((area.Width - width) / 2, std::max((area.Height - 150) / 2, 0.0F), width, 150);
  FillRounded(graphics, box, 8, Rgb(theme.bar));
  const auto title = UserFont(17, true);
  const auto text = UserFont(14, false);
  DrawLine(graphics, m_saveFailed ? L"The copy could not be written" : L"Keep the changes?", title.get(),
           Gdiplus::RectF(box.X + 20, box.Y + 16, width - 40, 26), Rgb(theme.text), Gdiplus::StringAlignmentNear);
  DrawLine(graphics, L"Save writes a copy beside the picture.", text.get(),
           Gdiplus::RectF(box.X + 20, box.Y + 48, width - 40, 22), Rgb(theme.faint), Gdiplus::StringAlignmentNear);

  constexpr std::array<const wchar_t*, 3> kLabels{L"Save", L"Discard", L"Cancel"};
  const float buttonWidth = (width - 40 - 20) / 3;
  for (std::size_t i = 0; i < m_buttons.size(); ++i) {
    m_buttons[i] = Gdiplus::RectF(box.X + 20 + static_cast<float>(i) * (buttonWidth + 10), box.Y + 96, buttonWidth, 36);
    const bool isFirst = i == 0;
    FillRounded(graphics, m_buttons[i], 5, Rgb(isFirst ? kAccent : theme.ground));
    DrawLine(graphics, kLabels[i], text.get(), m_buttons[i], Rgb(isFirst ? 0xFFFFFF : theme.text),
             Gdiplus::StringAlignmentCenter);
  }
}

} // namespace example
