#pragma once

#include "ZVXAnimatedImage.h"
#include "ZVXGenerationCounter.h"

#include <QWidget>

/*!
    Shows a ZVXAnimatedImage scaled to fit, keeping its aspect ratio, and
    plays it: each frame for its delay, on the library's clock, looping as
    the image says. Playing pauses while the view is hidden or its window
    minimised, and goes on from the same frame when it shows again.
*/
class ZUVERO_EXPORT ZVXAnimatedImageView : public QWidget
{
    Q_OBJECT

public:
    explicit ZVXAnimatedImageView(QWidget *parent = nullptr);

    ZVXAnimatedImage image() const { return m_image; }
    //! Shows the first frame of \a image; an animation under way goes on with the new image.
    void setImage(const ZVXAnimatedImage &image);

    //! Plays from the frame shown (from the first when the last loop had ended).
    void startAnimating();
    //! Stays on the frame shown.
    void stopAnimating();
    //! Started and not stopped or at the end of its loops; also while paused by hiding.
    bool isAnimating() const { return m_animating; }
    int currentFrame() const { return m_frame; }

    QSize sizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;

Q_SIGNALS:
    void frameChanged(int frame);

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    bool canPlay() const;
    void scheduleNextFrame();
    void showNextFrame();

    ZVXAnimatedImage m_image;
    // A step scheduled before the last start, stop, pause or image does nothing.
    ZVXGenerationCounter m_steps;
    int m_frame = 0;
    int m_loopsDone = 0;
    bool m_animating = false;
    bool m_finished = false;
    bool m_shown = false;
};
