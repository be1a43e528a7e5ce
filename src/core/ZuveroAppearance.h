#pragma once

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
    QImage image;
    QMarginsF capInsets; //!< the fixed borders, as (left, top, right, bottom)
    bool isTemplate = false;

    bool isNull() const { return image.isNull(); }
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
    friend bool operator==(const ZuveroDateFormatter &, const ZuveroDateFormatter &) = default;
};

/*!
    The look of the chat screen: colours, fonts, insets and bubble images.
    Every field may be set by the host, in code or through its configuration
    file; an invalid colour or an absent font means "use the screen's own".
*/
struct ZUVERO_EXPORT ZuveroAppearance
{
    QColor tintColor;
    QColor cursorTintColor;
    QColor sendTintColor;
    QColor navigationBarItemTintColor;
    QColor navigationBarColor;
    QColor navigationBarTintColor;
    QColor navigationBarTitleColor;
    QColor inputBarTintColor;
    QColor inputBarBackgroundColor;
    QColor disabledSendButtonColor;

    QColor userMessageTextColor;
    QColor agentMessageTextColor;
    QColor systemMessageTextColor;
    QColor userMessageBackgroundColor;
    QColor agentMessageBackgroundColor;
    QColor systemMessageBackgroundColor;
    QColor errorIconColor;
    QColor dateTextColor;
    QColor loadMoreMessagesButtonTextColor;
    QColor agentNameColor;

    std::optional<QFont> defaultFont;
    std::optional<QFont> messageFont;
    std::optional<QFont> systemMessageFont;
    std::optional<QFont> dateFont;
    std::optional<QFont> agentNameFont;
    std::optional<QFont> messageFieldFont;

    QMarginsF userMessageBubbleInsets;
    QMarginsF agentMessageBubbleInsets;
    QMarginsF systemMessageBubbleInsets;
    QMarginsF userAttachmentBubbleInsets;
    QMarginsF agentAttachmentBubbleInsets;
    QMarginsF agentNameInsets;

    ZuveroResizableImage userMessageBubbleImage;
    ZuveroResizableImage agentMessageBubbleImage;
    ZuveroResizableImage systemMessageBubbleImage;
    ZuveroResizableImage userAttachmentBubbleImage;
    ZuveroResizableImage agentAttachmentBubbleImage;
    ZuveroResizableImage attachmentIcon;

    ZuveroDateFormatter dateFormatter;
    int keyboardAppearance = 0;

    //! The library's own look: the colours, insets and bubbles every screen starts from.
    static ZuveroAppearance defaults();

    /*!
        Sets the field named \a key to \a value. False, changing nothing, when
        no field has that name or the value is not of the field's type.
    */
    bool setValue(const QString &key, const QVariant &value);

    //! The fonts still unset take the default font, else the system font at the chat's sizes.
    void fillFonts();

    friend bool operator==(const ZuveroAppearance &, const ZuveroAppearance &) = default;
};
