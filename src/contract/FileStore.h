#pragma once

/// The file store's action and the names of its fields, for the module that serves it and for those that call
/// it. They are literals, so that no module has anything to destroy for them.

/// The action that takes a file over and keeps it for whoever sends it on, and the signature text it is
/// registered with. It answers 0 once the file is safe, 13 where the file will not do, 1 where the store
/// cannot take one at the moment. Its fields stand at the container's own level.
inline constexpr char kFileStoreAction[] = "FileStoreReceiveFile";
inline constexpr char kFileStoreSignature[] = "FileStoreReceiveFile (container)";

/// Text: full path of a regular file, which is moved away. The only field that is required.
inline constexpr char kFileStoreMovePath[] = "MovePath";
/// Text: what the content is; for the reader of the file alone.
inline constexpr char kFileStoreFileType[] = "FileType";
/// The two types that the event module hands over.
inline constexpr char kFileTypeEvents[] = "EventLogManagerEvents";
inline constexpr char kFileTypeAlert[] = "EventManagerEvent";
/// Text: the last part of the derived file name.
inline constexpr char kFileStoreFileLabel[] = "FileLabel";
/// Text: the file's name in the store; empty for the derived one.
inline constexpr char kFileStoreFileName[] = "FileName";
/// Text: checksum of the content; empty to have the store compute its SHA-256.
inline constexpr char kFileStoreFileChecksum[] = "FileChecksum";
/// Bool: the file is to be sent on to the Master.
inline constexpr char kFileStoreUpstream[] = "Upstream";
/// 32-bit integer: the order in which waiting files are sent on.
inline constexpr char kFileStorePriority[] = "Priority";

/// The file of the outbox in which a forwarder says how far it is: JSON, replaced every few seconds.
inline constexpr char kForwarderStateName[] = ".lumforward.json";
