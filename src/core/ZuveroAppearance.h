#pragma once

//! \file
//! The look of the chat screen.

#include "zuvero_export.h"

#include <QColor>
#include <QDateTime>
#include <QFont>
#include <QImage>
#include <QLocale>
#include <QMarginsF>
#include <QVariant>

#include <optional>

/*!
    An image drawn stretched between fixed corners (a chat bubble), and
    optionally as a template: its shape filled with a colour of the theme.
*/
struct ZuveroResizableImage
{
    QImage image; //!< the picture at its natural size
    QMarginsF capInsets; //!< the fixed borders, as (left, top, right, bottom)
    bool isTemplate = false; //!< only the shape counts: it is filled with a colour when drawn

    //! True when there is no picture.
    bool isNull() const { return image.isNull(); }
    //! Same picture, borders and kind.
    friend bool operator==(const ZuveroResizableImage &a, const ZuveroResizableImage &b)
    {
        return a.image == b.image && a.capInsets == b.capInsets && a.isTemplate == b.isTemplate;
    }
};
Q_DECLARE_METATYPE(ZuveroResizableImage)

//! Dates and times in the chat, in the short styles of a locale.
struct ZuveroDateFormatter
{
    /*!
        The locale dates are written in. None: the default locale at the
        time of writing, so that dates follow the application's language.
    */
    std::optional<QLocale> locale;
    QLocale::FormatType dateStyle = QLocale::ShortFormat; //!< how much of the date is written
    QLocale::FormatType timeStyle = QLocale::ShortFormat; //!< how much of the time is written

    //! The locale a date written now is written in.
    QLocale usedLocale() const { return locale.value_or(QLocale()); }

    //!  date in local time: its date, a space, then its time.
    QString stringFromDate(const QDateTime &date) const
    {
        const QLocale used = usedLocale();
        const QDateTime local = date.toLocalTime();
        return used.toString(local.date(), dateStyle) + QLatin1Char(' ')
            + used.toString(local.time(), timeStyle);
    }
    //! Same locale (or both following the default one) and same styles.
    friend bool operator==(const ZuveroDateFormatter &, const ZuveroDateFormatter &) = default;
};

/*!
    The look of the chat screen: colours, fonts, insets and bubble images.
    Every field may be set by the host, in code or through its configuration
    file; an invalid colour or an absent font means "use the screen's own".
*/
struct ZUVERO_EXPORT ZuveroAppearance
{
    QColor tintColor; //!< the accent; the three tints below default to it
    QColor cursorTintColor; //!< the text cursor of the message field
    QColor sendTintColor; //!< the send button while it can send
    QColor navigationBarItemTintColor; //!< the Back and Done buttons
    QColor navigationBarColor; //!< the title bar's background
    QColor navigationBarTintColor; //!< the title bar's background, over navigationBarColor
    QColor navigationBarTitleColor; //!< the title
    QColor inputBarTintColor; //!< kept for configuration files; the input bar follows the palette
    QColor inputBarBackgroundColor; //!< the input bar's background
    QColor disabledSendButtonColor; //!< the send button while there is nothing to send

    QColor userMessageTextColor; //!< text in the user's bubbles
    QColor agentMessageTextColor; //!< text in agents' bubbles
    QColor systemMessageTextColor; //!< text of the service's notices
    QColor userMessageBackgroundColor; //!< the user's bubbles
    QColor agentMessageBackgroundColor; //!< agents' bubbles
    QColor systemMessageBackgroundColor; //!< the service's notices
    QColor errorIconColor; //!< the mark beside a message that could not be sent
    QColor dateTextColor; //!< date rows and the unsent label
    QColor loadMoreMessagesButtonTextColor; //!< the "Load earlier messages" row
    QColor agentNameColor; //!< the agent's name above a bubble

    std::optional<QFont> defaultFont; //!< the font of every text whose own font is unset
    std::optional<QFont> messageFont; //!< bubbles' text
    std::optional<QFont> systemMessageFont; //!< the service's notices
    std::optional<QFont> dateFont; //!< date rows and the unsent label
    std::optional<QFont> agentNameFont; //!< the agent's name above a bubble
    std::optional<QFont> messageFieldFont; //!< the text the user types

    QMarginsF userMessageBubbleInsets; //!< room between the user's bubble and its text
    QMarginsF agentMessageBubbleInsets; //!< room between an agent's bubble and its text
    QMarginsF systemMessageBubbleInsets; //!< room around a notice's text
    QMarginsF userAttachmentBubbleInsets; //!< room around the user's pictures and files
    QMarginsF agentAttachmentBubbleInsets; //!< room around agents' pictures and files
    QMarginsF agentNameInsets; //!< room around the agent's name

    ZuveroResizableImage userMessageBubbleImage; //!< the user's text bubble
    ZuveroResizableImage agentMessageBubbleImage; //!< an agent's text bubble
    ZuveroResizableImage systemMessageBubbleImage; //!< a notice's bubble
    ZuveroResizableImage userAttachmentBubbleImage; //!< the frame of the user's attachments
    ZuveroResizableImage agentAttachmentBubbleImage; //!< the frame of agents' attachments
    ZuveroResizableImage attachmentIcon; //!< kept for configuration files; the bar draws its own

    ZuveroDateFormatter dateFormatter; //!< how date rows and screen-reader texts write dates
    int keyboardAppearance = 0; //!< kept for configuration files; a desktop has no such keyboard

    //! The library's own look: the colours, insets and bubbles every screen starts from.
    static ZuveroAppearance defaults();

    /*!
        Sets the field named \a key to \a value. False, changing nothing, when
        no field has that name or the value is not of the field's type.
    */
    bool setValue(const QString &key, const QVariant &value);

    //! The fonts still unset take the default font, else the system font at the chat's sizes.
    void fillFonts();

    //! Every field equal.
    friend bool operator==(const ZuveroAppearance &, const ZuveroAppearance &) = default;
};
