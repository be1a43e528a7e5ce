#pragma once

#include "ZVXDevRecords.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <variant>

struct ZVXDevOptions;

/*!
    Checks the token a request carries and says whom it names. A token is
    valid when it is signed with the server's secret (HS256 or HS512), names
    the server's API key and names a user or an installation; in open mode
    any well-formed token naming one will do. In every mode a token is used
    only within its "nbf" and "exp", give or take a minute.
*/
class ZVXDevAuth
{
public:
    explicit ZVXDevAuth(const ZVXDevOptions &options);

    struct Refusal
    {
        QString error;
    };
    std::variant<ZVXDevIdentity, Refusal> identify(const std::optional<QString> &token) const;

private:
    std::optional<QString> m_apiKey;
    std::optional<QByteArray> m_secret;
    bool m_open;
};
