#include "ZVXStoredMessages.h"

#include <QFile>

#include <sqlite3.h>

QList<ZVXStoredMessage> ZVXStoredUserMessages(const QString &path)
{
    QList<ZVXStoredMessage> messages;
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr)
        != SQLITE_OK) {
        sqlite3_close(db);
        return messages;
    }
    sqlite3_stmt *select = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT uuid, text FROM messages WHERE sender = 'user' ORDER BY id",
                           -1, &select, nullptr)
        == SQLITE_OK) {
        const auto column = [select](int index) {
            return QString::fromUtf8(
                reinterpret_cast<const char *>(sqlite3_column_text(select, index)));
        };
        while (sqlite3_step(select) == SQLITE_ROW)
            messages.append({column(0), column(1)});
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    return messages;
}
