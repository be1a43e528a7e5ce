#pragma once

#include "ZuveroApplication.h"

/*
    The widget layer registers its message-box presenter here when the
    library loads; the application uses it whenever a QApplication exists
    and the host has not chosen a presenter of its own.
*/
using ZVXAlertPresenterFactory = std::shared_ptr<ZuveroAlertPresenter> (*)();
ZUVERO_EXPORT void ZVXRegisterWidgetAlertPresenter(ZVXAlertPresenterFactory factory);

//! Writes alerts and toasts to the log: the presenter of headless hosts.
class ZUVERO_EXPORT ZVXLogAlertPresenter final : public ZuveroAlertPresenter
{
public:
    void showAlert(const ZuveroAlert &alert) override;
    void showToast(const QString &title, const QString &text, double seconds) override;
};
