#include "examples/common/text.h"
#include "examples/host/host.h"

#include <algorithm>

namespace example {
namespace {

constexpr float kStrip = 44;
constexpr float kMaxTabWidth = 190;

struct Theme {
  unsigned strip;
  unsigned active;
  unsigned ground;
  unsigned text;
  unsigned faint;
};

constexpr Theme kLight{0xD5DCE5, 0xFFFFFF, 0xEEF1F5, 0x1F2933, 0x52606D};
constexpr Theme kDark{0x14171B, 0x2D333A, 0x1B1F24, 0xE6EAEE, 0x98A2AD};
constexpr unsigned kWarning = 0xB3261E;

/// Draws by way of a bitmap, so that nothing flickers.
template <typename Draw> void PaintBuffered(HWND window, Draw draw) {
  PAINTSTRUCT paint;
  const HDC context = BeginPaint(window, &paint);
  RECT area{};
  GetClientRect(window, &area);
  if (!IsRectEmpty(&area)) {
    Gdiplus::Bitmap canvas(area.right, area.bottom, PixelFormat32bppPARGB);
    Gdiplus::Graphics graphics(&canvas);
    graphics.SetSmoothingMode(Gdiplus::SmoothingModeAntiAlias);
    graphics.SetTextRenderingHint(Gdiplus::TextRenderingHintAntiAliasGridFit);
    draw(graphics, static_cast<float>(area.right), static_cast<float>(area.bottom));
    Gdiplus::Graphics(context).DrawImage(&canvas, 0, 0, area.right, area.bottom);
  }
  EndPaint(window, &paint);
}

} // namespace

void Host::Paint() {
  PaintBuffered(m_window, [this](Gdiplus::Graphics& graphics, float width, float) {
    const Theme& theme = m_isDark ? kDark : kLight;
    graphics.Clear(Rgb(m_tabs.empty() ? theme.ground : theme.strip));
    DrawStrip(graphics, width);
  });
}

void Host::DrawStrip(Gdiplus::Graphics& graphics, float width) {
  const Theme& theme = m_isDark ? kDark : kLight;
  const Gdiplus::SolidBrush strip(Rgb(theme.strip));
  graphics.FillRectangle(&strip, 0.0F, 0.0F, width, kStrip);
  const auto font = UserFont(13, false);

  float right = width - 8;
  for (auto button = m_buttons.rbegin(); button != m_buttons.rend(); ++button) {
    Gdiplus::RectF size;
    if (font != nullptr) {
      graphics.MeasureString(button->label, -1, font.get(), Gdiplus::PointF(0, 0), &size);
    }
    button->box = Gdiplus::RectF(right - size.Width - 20, 9, size.Width + 20, 27);
    right = button->box.X - 6;
    FillRounded(graphics, button->box, 5, Rgb(theme.active, 150));
    DrawLine(graphics, button->label, font.get(), button->box, Rgb(theme.text), Gdiplus::StringAlignmentCenter);
  }

  m_tabBoxes.clear();
  if (m_tabs.empty()) {
    return;
  }
  const float tabWidth = std::clamp((right - 8) / static_cast<float>(m_tabs.size()), 24.0F, kMaxTabWidth);
  for (std::size_t i = 0; i < m_tabs.size(); ++i) {
    const Tab& tab = *m_tabs[i];
    const Gdiplus::RectF box(8 + static_cast<float>(i) * tabWidth, 8, tabWidth - 4, kStrip - 8);
    m_tabBoxes.push_back(box);
    const bool isActive = i == m_active;
    if (isActive) {
      FillRounded(graphics, box, 7, Rgb(theme.active));
      const Gdiplus::SolidBrush foot(Rgb(theme.active));
      graphics.FillRectangle(&foot, box.X, box.Y + box.Height / 2, box.Width, box.Height / 2);
    }
    const bool isBad = tab.state == TabState::kCrashed || tab.state == TabState::kFailed;
    const std::wstring label = (tab.isModified ? L"\u2022 " : L"") + FileName(tab.path);
    DrawLine(graphics, label, font.get(), Gdiplus::RectF(box.X + 10, box.Y, box.Width - 20, box.Height),
             Rgb(isBad      ? kWarning
                 : isActive ? theme.text
                            : theme.faint),
             Gdiplus::StringAlignmentNear);
  }
}

void Host::PaintTab(const Tab& tab) {
  PaintBuffered(tab.window, [this, &tab](Gdiplus::Graphics& graphics, float width, float height) {
    const Theme& theme = m_isDark ? kDark : kLight;
    graphics.Clear(Rgb(theme.ground));
    const auto font = UserFont(15, false);
    if (tab.state == TabState::kCrashed) {
      const Gdiplus::RectF box((width - std::min(width, 460.0F)) / 2, std::max(height / 2 - 55, 0.0F),
                               std::min(width, 460.0F), 110);
      FillRounded(graphics, box, 8, Rgb(kWarning));
      const auto title = UserFont(18, true);
      DrawLine(graphics, L"The picture editor has stopped", title.get(),
               Gdiplus::RectF(box.X + 16, box.Y + 18, box.Width - 32, 30), Rgb(0xFFFFFF),
               Gdiplus::StringAlignmentCenter);
      DrawLine(graphics, L"Click here or press Enter to open the picture again.", font.get(),
               Gdiplus::RectF(box.X + 16, box.Y + 56, box.Width - 32, 30), Rgb(0xFFFFFF),
               Gdiplus::StringAlignmentCenter);
      return;
    }
    const wchar_t* text = tab.state == TabState::kFailed ? L"This picture could not be shown." : L"Opening\u2026";
    DrawLine(graphics, text, font.get(), Gdiplus::RectF(0, 0, width, height), Rgb(theme.faint),
             Gdiplus::StringAlignmentCenter);
  });
}

} // namespace example
