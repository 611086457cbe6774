#pragma once

#include <libpq-fe.h>

/// The functions of libpq, under its names without "PQ". They are in a module (catalogue/postgresql), which is loaded
/// when the first address of a server is read: libpq brings what logs in to networks with it, and most hosts that know
/// of a shop start without one. Any thread.
struct KXPostgreSQLLibrary
{
    /// nullptr where the module cannot be loaded, which the log says once; then no address can be read.
    [[nodiscard]] static const KXPostgreSQLLibrary *shared();

    decltype(&PQcancel) cancel;
    decltype(&PQclear) clear;
    decltype(&PQconnectPoll) connectPoll;
    decltype(&PQconnectStartParams) connectStartParams;
    decltype(&PQconnectdbParams) connectdbParams;
    decltype(&PQconninfoFree) conninfoFree;
    decltype(&PQconninfoParse) conninfoParse;
    decltype(&PQconsumeInput) consumeInput;
    decltype(&PQerrorMessage) errorMessage;
    decltype(&PQescapeLiteral) escapeLiteral;
    decltype(&PQexec) exec;
    decltype(&PQfinish) finish;
    decltype(&PQflush) flush;
    decltype(&PQfreeCancel) freeCancel;
    decltype(&PQfreemem) freemem;
    decltype(&PQgetCancel) getCancel;
    decltype(&PQgetResult) getResult;
    decltype(&PQgetisnull) getisnull;
    decltype(&PQgetlength) getlength;
    decltype(&PQgetvalue) getvalue;
    decltype(&PQisBusy) isBusy;
    decltype(&PQnfields) nfields;
    decltype(&PQntuples) ntuples;
    decltype(&PQparameterStatus) parameterStatus;
    decltype(&PQputCopyData) putCopyData;
    decltype(&PQputCopyEnd) putCopyEnd;
    decltype(&PQresultErrorField) resultErrorField;
    decltype(&PQresultErrorMessage) resultErrorMessage;
    decltype(&PQresultStatus) resultStatus;
    decltype(&PQsendQuery) sendQuery;
    decltype(&PQsendQueryParams) sendQueryParams;
    decltype(&PQserverVersion) serverVersion;
    decltype(&PQsetNoticeProcessor) setNoticeProcessor;
    decltype(&PQsetnonblocking) setnonblocking;
    decltype(&PQsocket) socket;
    decltype(&PQstatus) status;
};

/// For who has a connection.
inline const KXPostgreSQLLibrary &KXLibpq() { return *KXPostgreSQLLibrary::shared(); }
