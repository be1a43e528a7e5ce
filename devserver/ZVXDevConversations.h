#pragma once

#include "ZVXDevStorage.h"

#include <QByteArray>

#include <functional>

class ZVXDevFiles;
class ZVXDevPushHub;

/*!
    Adding a message to a conversation, whoever writes it: its files are
    stored with it, a message for the user is pushed to the user's devices,
    and a message from the user is announced to whoever answers (the bot).
*/
class ZVXDevConversations
{
public:
    ZVXDevConversations(ZVXDevStorage &storage, ZVXDevFiles &files, ZVXDevPushHub &push);

    struct Upload
    {
        QString uuid;
        QByteArray bytes;
        QString contentType;
        QString filename;
    };
    /*!
        Stores \a message (whose attachments are described by \a uploads).
        Nothing when a file cannot be written.
    */
    std::optional<ZVXDevStorage::Insert> post(ZVXDevMessageRecord message,
                                              const QList<Upload> &uploads);

    //! Called, on the thread that stored it, for each new message from a user.
    void setUserMessageObserver(std::function<void(const ZVXDevMessageRecord &)> observer)
    {
        m_userMessageObserver = std::move(observer);
    }

private:
    void pushToDevices(const ZVXDevMessageRecord &message);

    ZVXDevStorage &m_storage;
    ZVXDevFiles &m_files;
    ZVXDevPushHub &m_push;
    std::function<void(const ZVXDevMessageRecord &)> m_userMessageObserver;
};
