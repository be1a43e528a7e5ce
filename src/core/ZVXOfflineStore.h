#pragma once

#include "ZuveroChatMessage.h"

#include <QString>

#include <optional>

/*!
    The file in which one identity's queue of unsent messages outlives the
    process: the messages in their dictionary form, with the bytes of their
    attachments, in the order they wait. Every change rewrites it whole and
    atomically (a crash leaves the old file or the new one, never half of
    either); it is readable by its owner only.

    Each identity (server host name and user identifier) has a file of its
    own, so that a queue never goes out under another user's name: what one
    user left waits for that user to come back.
*/
class ZVXOfflineStore
{
public:
    ZVXOfflineStore(const QString &folder, const QString &hostname,
                    const std::optional<QString> &userIdentifier);

    QString path() const { return m_path; }

    /*!
        The messages kept, marked offline. A file that cannot be read is
        set aside under another name (logged), never overwritten, and
        reads as no messages; so does an entry that is not a message.
    */
    ZuveroChatMessageList load() const;
    //! Replaces the file's messages; an empty queue removes the file. False (logged) on failure.
    bool save(const ZuveroChatMessageList &messages) const;

private:
    QString m_path;
    QString m_hostname;
    QString m_userIdentifier;
};
