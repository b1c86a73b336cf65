// What this process knows of all its connections together: who writes where, and what a fork
// breaks.
#pragma once

#include "sqldb/repositoryfile.h"

namespace sqldb {

/// A connection, as fork() meets it.
class ForkParticipant {
 public:
  virtual ~ForkParticipant() = default;
  /// In the parent, right before: notes whether the connection rests.
  virtual void prepareFork() noexcept = 0;
  /// In the child: gives up every lock and refuses all further calls.
  virtual void abandonInChild() noexcept = 0;
  /// In the child, when `file` is to be opened anew: closes the engine's handle to that file,
  /// which is harmless for one that rested. \returns false when it did not rest, or cannot be
  /// closed
  virtual bool makeWayInChild(FileIdentity file) noexcept = 0;
};

/// Puts a connection under the eyes of fork() for its lifetime.
void joinForks(ForkParticipant& participant);
void leaveForks(ForkParticipant& participant) noexcept;

/// Remembers a file whose handle, inherited by a fork, could not be closed: the engine's
/// bookkeeping of that file is wrong in this process for good.
void markUnusableAfterFork(FileIdentity file);

/// Before opening a file: clears away handles inherited by a fork. \returns false when this
/// process must not open the file
bool clearInheritedHandles(FileIdentity file);

/// How often this process, or one it descends from, has been the child of a fork since the
/// library was first used: what was opened under another number is not ours.
unsigned forkGeneration();

/// The thread that holds the write lock of a file, by the file that carries the lock.
bool isWrittenByThisThread(FileIdentity lockFile);
void setWriter(FileIdentity lockFile);
void clearWriter(FileIdentity lockFile) noexcept;

/// The index of a file's log that the engine uses in this process: one for all its connections.
/// Counts a user of it. \returns false when the engine uses another one
bool useIndex(FileIdentity file, FileIdentity index);
void giveBackIndex(FileIdentity file) noexcept;

}  // namespace sqldb
