#pragma once

#include "ZuveroCertificateAuthorities.h"

#include <QSslConfiguration>

/*
    The trust setup of the process: a generation that changes with every
    change of the trusted authorities, and the TLS configuration for it.
    Sessions compare the generation before each request.
*/
namespace ZVXTrustStore {

ZUVERO_EXPORT quint64 generation();

/*!
    The TLS configuration of the current trust setup, and its generation.
    With no authorities added it is Qt's default (the system's authorities).
*/
ZUVERO_EXPORT QSslConfiguration configuration(quint64 *generation = nullptr);

} // namespace ZVXTrustStore
