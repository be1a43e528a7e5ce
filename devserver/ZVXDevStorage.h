#pragma once

#include "ZVXDevRecords.h"

#include <QStringList>

#include <functional>
#include <mutex>

struct sqlite3;

/*!
    The server's SQLite database. One connection serves every thread, one
    call at a time; each call is one transaction, so data survives a crash
    or a restart whole.
*/
class ZVXDevStorage
{
public:
    ZVXDevStorage() = default;
    ~ZVXDevStorage();
    ZVXDevStorage(const ZVXDevStorage &) = delete;
    ZVXDevStorage &operator=(const ZVXDevStorage &) = delete;

    //! Opens (or creates) the database at \a path; false with \a error.
    bool open(const QString &path, QString *error);

    //! The user \a identity names, created or updated with its name and extra claims.
    ZVXDevUser userFor(const ZVXDevIdentity &identity);
    //! The user \a identity names, if it has been seen before.
    std::optional<ZVXDevUser> findUser(const ZVXDevIdentity &identity);
    std::optional<ZVXDevUser> user(qint64 id);

    /*!
        Records \a device for \a user, replacing what the installation
        registered before. An installation identifier names a device within
        its user only: another user's registration never touches it. A push
        token, which only the installation it was issued to holds, belongs
        to the last user who registered it.
    */
    void registerDevice(qint64 user, const ZVXDevDevice &device);
    bool hasDevice(qint64 user, const QString &installationId);

    enum class Insert {
        Stored,
        //! The same user sent this uuid before: nothing changed.
        Duplicate,
        //! The uuid (of the message or of an attachment) belongs to someone else.
        Conflict,
    };
    /*!
        Stores \a message unless its uuid is known. \a commitFiles runs inside
        the transaction once the rows are in, and its failure undoes them.
    */
    Insert insertMessage(const ZVXDevMessageRecord &message,
                         const std::function<bool()> &commitFiles = {});

    ZVXDevMessagePage messages(qint64 user, const ZVXDevMessageQuery &query);
    //! The console's window; with at most MaxUnseen of the messages the user has not read.
    ZVXDevConsolePage consoleMessages(qint64 user, const ZVXDevConsoleQuery &query);
    static constexpr int MaxUnseen = 100;
    //! Agent and system messages the user has not seen.
    int unreadCount(qint64 user);
    //! Marks those of \a uuids that are agent or system messages of \a user as seen.
    void markReadByUser(qint64 user, const QStringList &uuids);
    //! Marks every message of \a user as seen by the agents.
    void markReadByAgent(qint64 user);

    std::optional<ZVXDevAttachmentRecord> attachment(const QString &uuid);

    /*!
        The \a limit most recently active conversations, first the most
        recent; the text of their last message cut to \a textLength
        characters, without its context and location.
    */
    QList<ZVXDevConversationSummary> conversations(int limit, int textLength);

private:
    class Statement;
    bool execute(const char *sql);
    //! The rows of \a statement, up to \a maxBytes of them as stored (at least one; 0: all).
    QList<ZVXDevMessageRecord> readMessages(Statement &statement, qint64 maxBytes = 0,
                                            bool *stopped = nullptr);
    void loadAttachments(QList<ZVXDevMessageRecord> &messages);

    std::mutex m_mutex;
    sqlite3 *m_db = nullptr;
};
