#pragma once

/// Codes of store errors, in KXKestrixKitErrorDomain.
namespace KXStoreErrorCode {
inline constexpr int InvalidModel = 1101; ///< a model file cannot be read, parsed or resolved
/// The file was written with another model; the description names what differs and what to do.
inline constexpr int IncompatibleModel = 134100;
inline constexpr int CannotOpen = 1110; ///< missing, a folder, unreadable, no permission
inline constexpr int NotAStore = 1111; ///< something else than a store of ours
inline constexpr int Damaged = 1112;
inline constexpr int Busy = 1113; ///< another connection kept the file locked for five seconds
inline constexpr int DiskFull = 1114;
inline constexpr int ReadOnly = 1115;
inline constexpr int Interrupted = 1116; ///< the running query was cancelled
inline constexpr int InputOutput = 1117;
inline constexpr int NoMapping = 1118; ///< what would become of a model's entities in another cannot be told
inline constexpr int Gone = 1119; ///< the file that is open was removed, replaced or moved by somebody else
inline constexpr int ValidationFailed = 1120; ///< a required value is missing, a number is none, a deletion is denied
inline constexpr int UnknownKey = 1121; ///< a predicate or an order names what its entity does not have
inline constexpr int NotComparable = 1122; ///< a predicate compares a number with a text, or a date with either
inline constexpr int BackupExists = 1123; ///< there is a backup of today already
inline constexpr int Other = 1199;
inline constexpr int NothingToMigrate = 8001; ///< no models, or no mappings that lead to the wanted one
}
