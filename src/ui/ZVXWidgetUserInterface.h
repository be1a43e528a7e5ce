#pragma once

#include "ZuveroApplication.h"

/*!
    Alerts and toasts as message boxes, for hosts with Qt Widgets. Each box
    is window-modal over the active window (application-modal when there is
    none) and does not block the caller; it deletes itself when closed.
*/
class ZUVERO_EXPORT ZVXMessageBoxPresenter final : public ZuveroAlertPresenter
{
public:
    void showAlert(const ZuveroAlert &alert) override;
    void showToast(const QString &title, const QString &text, double seconds) override;
};
