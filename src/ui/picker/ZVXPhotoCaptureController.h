#pragma once

#include "ZuveroImage.h"
#include "zuvero_export.h"

#include <QWidget>

#include <memory>

class ZVXPhotoCaptureControllerPrivate;

/*!
    A small camera window: the default camera's picture live, "Take Photo"
    and "Cancel". The photo taken is handed back as a picture record (JPEG),
    as a picture chosen from a file is. A camera that cannot start or
    capture says so in the window and in the log; the user cancels.

    Offered only where the system lists a camera. It ends once, with
    didCapture() or didCancel(), and deletes itself when closed.
*/
class ZUVERO_EXPORT ZVXPhotoCaptureController : public QWidget
{
    Q_OBJECT

public:
    explicit ZVXPhotoCaptureController(QWidget *parent = nullptr);
    ~ZVXPhotoCaptureController() override;

Q_SIGNALS:
    void didCapture(const ZuveroImagePtr &image);
    void didCancel();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    friend class ZVXPhotoCaptureControllerPrivate;
    std::unique_ptr<ZVXPhotoCaptureControllerPrivate> d;
};
