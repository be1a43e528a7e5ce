#pragma once

//! \file
//! What the facade tells a host's delegate.

#include "ZuveroNotificationCenter.h"

#include <functional>

class Zuvero;

/*!
    What a host may want to hear from the facade, beside the notifications
    it posts. Every member is optional: an empty one is not called. The
    facade holds the delegate weakly (a std::weak_ptr), so the host keeps it
    alive for as long as it wants to be told.

    Event members receive the very notification that was posted just before.
*/
struct ZuveroDelegate
{
    //! Replaces the built-in presentation of the chat screen.
    std::function<void(Zuvero *zuvero)> zuveroDisplayChatViewController;
    //! After the chat screen was shown by displayChatView().
    std::function<void(Zuvero *zuvero)> onOpen;
    //! After the chat screen disappeared.
    std::function<void(Zuvero *zuvero)> onClose;

    //! The unread count changed (ZuveroChatUnreadCountDidChangeNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroUnreadCountDidChange;
    //! The welcome text changed (ZuveroWelcomeMessageDidChangeNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroWelcomeMessageDidChange;
    //! The user sent a message (ZuveroChatDidSendMessageNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatDidSendMessage;
    //! New messages arrived (ZuveroChatDidReceiveNewMessagesNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatDidReceiveNewMessages;
    //! The chat screen is about to show (ZuveroChatWillAppearNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatWillAppear;
    //! The chat screen shows (ZuveroChatDidAppearNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatDidAppear;
    //! The chat screen is about to go (ZuveroChatWillDisappearNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatWillDisappear;
    //! The chat screen went (ZuveroChatDidDisappearNotification).
    std::function<void(const ZuveroNotification &notification)> zuveroChatDidDisappear;

    //! The first request of a burst began (requests less than 0.3 s apart form one burst).
    std::function<void(Zuvero *zuvero)> zuveroDidBeginNetworkActivity;
    //! The last request of a burst ended.
    std::function<void(Zuvero *zuvero)> zuveroDidEndNetworkActivity;

    //! Whether a pushed message may be shown in the in-app banner; false keeps it quiet.
    std::function<bool(Zuvero *zuvero, const QString &text)>
        zuveroShouldDisplayNotificationWithText;
};
