// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <functional>

class QScreen;

namespace velor {

class VLVideoView;

/// Videos on the whole of one screen, one at a time, without a cursor. When the screen goes it
/// shows nothing, on no other screen either, until a screen of that name comes. Queue: main.
class VLMediaScreen final : public QWidget {
  Q_OBJECT

 public:
  /// `closed`: the user has closed the window, or pressed Ctrl+Q.
  VLMediaScreen(QScreen& screen, std::function<void()> closed);

  /// By name, by number from 1, or the first one for an empty text; null when there is none.
  static QScreen* screenOf(const QString& text);
  /// For people: 1 'DP-1', 2 'HDMI-1'.
  static QString screens();

  /// Adds a view over those before. It lives as long as the screen does.
  VLVideoView& addView();
  /// Shows the topmost clip that runs. While no clip runs, the last one that was shown stays.
  void setRunning(VLVideoView& view, bool isRunning);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void showOn(QScreen& screen);
  void screenCame(QScreen* screen);
  void screenWent(QScreen* screen);

  const QString mName;
  const std::function<void()> mClosed;
  QPointer<QScreen> mScreen;
  QList<VLVideoView*> mViews;  // the topmost last
  QList<VLVideoView*> mRunning;
};

}  // namespace velor
