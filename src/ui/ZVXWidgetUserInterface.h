#pragma once

#include "ZVXUserInterface.h"

/*!
    The user interface of a host with Qt Widgets. Alerts are message boxes,
    window-modal over the active window (application-modal when there is
    none), that never block the caller and delete themselves when closed;
    toasts are notices that take no focus and replace each other (Toast).
    The chat screen and the banner are still the headless ones.
*/
class ZUVERO_EXPORT ZVXWidgetUserInterface final : public ZVXHeadlessUserInterface
{
public:
    void showAlert(const ZVXAlert &alert) override;
    void showToast(const QString &title, const QString &text, double seconds) override;
};
