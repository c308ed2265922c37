// SPDX-License-Identifier: MIT
#pragma once

#include <QToolButton>

namespace velor {

/// A button that can be hit in the dark: flat, with a visible focus, pressed by Return. In a
/// row of choices the buttons touch. Actions that it triggers can ask VLEventModifiers.
/// Queue: main.
class VLButton final : public QToolButton {
  Q_OBJECT

 public:
  explicit VLButton(QWidget* parent = nullptr);

  /// Whether it touches its neighbours.
  void setJoined(bool before, bool after);
  /// With neither, the icon alone, for narrow windows.
  void setTextVisible(bool visible);
  /// One that gives way where there is no room, down to its icon: its text then ends in an
  /// ellipsis.
  void setElided(bool elided);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  bool showsText() const { return mIsTextVisible || icon().isNull(); }

  bool mJoinedBefore = false;
  bool mJoinedAfter = false;
  bool mIsTextVisible = true;
  bool mIsElided = false;
};

}  // namespace velor
