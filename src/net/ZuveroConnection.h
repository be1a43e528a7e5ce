#pragma once

//! \file
//! The connection to the chat server, and the notifications of its previews.

#include "ZuveroChatMessage.h"
#include "ZuveroError.h"

#include <QDateTime>
#include <QImage>
#include <QObject>
#include <QSize>

#include <functional>
#include <limits>
#include <memory>
#include <optional>

//! The count reported when none could be read.
inline constexpr qint64 ZuveroNotFound = std::numeric_limits<qint64>::max();

/*!
    Posted on the main thread when an attachment's preview has arrived; the
    object is the attachment (a ZuveroChatAttachmentPtr), the user info's
    ZuveroPreviewImageKey holds the preview (a ZuveroImagePtr).
*/
inline constexpr QLatin1String ZuveroAttachmentPreviewDidLoadNotification{
    "ZuveroAttachmentPreviewDidLoadNotification"};
/*!
    Posted on the main thread when the map picture of a message's location
    has been drawn; the object is the message (a ZuveroChatMessagePtr), the
    user info's ZuveroPreviewImageKey holds the picture (a QImage).
*/
inline constexpr QLatin1String ZuveroLocationPreviewDidLoadNotification{
    "ZuveroLocationPreviewDidLoadNotification"};
//! The user-info key of the picture in the two preview notifications.
inline constexpr QLatin1String ZuveroPreviewImageKey{"previewImage"};

class ZVXConnectionAPI;
class ZuveroConnectionPrivate;

/*!
    The one client of the chat server. Every call registers first when
    needed, sends one HTTPS request and reports exactly once through its
    completion, on the main thread. Calls must be made on the main thread.

    The facade creates the connection and owns it; a host reaches it through
    Zuvero::connection().
*/
class ZUVERO_EXPORT ZuveroConnection : public QObject
{
    Q_OBJECT

public:
    //! Called once a call ends: \a success, or the \a error that stopped it.
    using Completion = std::function<void(bool success, const ZuveroError &error)>;
    //! Called with a count, or ZuveroNotFound and the error.
    using CountCompletion = std::function<void(qint64 count, const ZuveroError &error)>;
    //! Called with the messages, oldest first, and whether there are older ones; or an error.
    using MessagesCompletion
        = std::function<void(const std::optional<ZuveroChatMessageList> &messages,
                             bool moreMessages, const ZuveroError &error)>;
    //! Upload and download fractions, 0 to 1.
    using Progress = std::function<void(double upload, double download)>;
    //! Called with the decoded picture of an attachment, or an error.
    using DocumentCompletion
        = std::function<void(const ZuveroImagePtr &document, const ZuveroError &error)>;
    //! Called with the bytes of an attachment's file, or an error.
    using FileCompletion
        = std::function<void(const std::optional<QByteArray> &bytes, const ZuveroError &error)>;

    //! A connection reading its settings from \a api, which it does not own.
    static ZuveroConnection *initWithAPI(ZVXConnectionAPI *api, QObject *parent = nullptr);
    ~ZuveroConnection() override;

    //! The version of the server's API in request paths: "1.0" ("/api/1.0/...").
    static QString serverApiVersion();

    //! Tells the server who the user is and where to push.
    void registerApp(Completion completion);
    //! The unread count, after the facade has taken it over.
    void loadUserStatus(CountCompletion completion);
    //! The unread count the server reports, which the facade takes over as well.
    void fetchUnreadCountWithCompletion(CountCompletion completion);

    /*!
        Messages written after \a since (the newest page without a date),
        oldest first, at most \a limit of them (no limit at 0).
    */
    void loadMessageSinceDate(const QDateTime &since, quint32 limit, MessagesCompletion completion);
    //! Messages written after \a since and before \a until; an invalid date sets no bound.
    void loadMessageSinceDate(const QDateTime &since, const QDateTime &until, quint32 limit,
                              MessagesCompletion completion);
    //! Messages written before \a until.
    void loadMessageUntilDate(const QDateTime &until, quint32 limit, MessagesCompletion completion);

    //! Sends \a message with the attachments that have their bytes.
    void sendChatMessage(const ZuveroChatMessagePtr &message, Completion completion,
                         Progress progress = {});
    //! Tells the server that the user has seen \a messages; none succeeds at once.
    void markReadMessages(const ZuveroChatMessageList &messages, Completion completion);

    // --- Previews --------------------------------------------------------
    //
    // The pictures shown before the files themselves, kept in memory caches
    // shared by attachments (by their uuid) and locations (by the message's
    // uuid). The chat asks whether one is cached; on a miss it asks for a
    // load and waits for the notification that says it has arrived. A load
    // that failed is not tried again for 10 seconds.

    //! The preview of \a attachment held in memory (or made from its own bytes); never loads.
    ZuveroImagePtr cachedAttachmentPreview(const ZuveroChatAttachmentPtr &attachment);
    /*!
        The cached preview, or null after starting its load (none starts
        while one runs, nor within 10 s of a failure). A load that succeeds
        posts ZuveroAttachmentPreviewDidLoadNotification.
    */
    ZuveroImagePtr loadAttachmentPreview(const ZuveroChatAttachmentPtr &attachment);
    //! The picture the file download cache holds for \a url, whatever it is; never loads.
    ZuveroImagePtr cachedPreviewImageIfNeeded(const QUrl &url);
    /*!
        The whole picture of \a attachment, from its own bytes or downloaded;
        \a completion runs once on the main thread. Other documents and
        bytes that are not a picture end with ZuveroErrorAttachmentCannotBeOpened.
    */
    void loadAttachmentDocument(const ZuveroChatAttachmentPtr &attachment,
                                DocumentCompletion completion);
    /*!
        The file of \a attachment as it is: its own bytes, or downloaded from
        its dataURL with "?jwt=" and the token appended to the address as
        written, even after a query of its own (the token goes only to the
        chat server, over HTTPS). \a completion runs once on the main thread;
        a reply other than 2xx ends with ZuveroErrorAttachmentCannotBeOpened.
    */
    void loadAttachmentFile(const ZuveroChatAttachmentPtr &attachment, FileCompletion completion);
    //! The map picture of \a message's location held in memory; never draws.
    QImage cachedLocationPreview(const ZuveroChatMessagePtr &message);
    /*!
        The cached map picture, or a null image after starting to draw one of
        \a size (in device-independent pixels, drawn for the screen's pixel
        ratio) around the location, with the location's span ("d", metres; 2000
        without). When it is drawn, ZuveroLocationPreviewDidLoadNotification is posted.
    */
    QImage loadLocationPreview(const ZuveroChatMessagePtr &message, const QSize &size);

    /*!
        The largest reply an API call takes, as it arrives and decoded: 16 MiB
        unless set. A larger one ends the call with ZuveroURLErrorReplyTooLarge
        (ZuveroURLErrorDomain) as soon as it is seen to be larger.
    */
    void setMaximumReplySize(qint64 bytes);
    //! The same for files and previews: 64 MiB unless set.
    void setMaximumFileSize(qint64 bytes);

private:
    explicit ZuveroConnection(ZVXConnectionAPI *api, QObject *parent);
    friend class ZuveroConnectionPrivate;
    std::unique_ptr<ZuveroConnectionPrivate> d;
};
