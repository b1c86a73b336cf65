// The chunks of a signal as records in a data file, one in memory at a time.
#pragma once

#include "datafile/datafile.h"
#include "objectmanager/objectmanager.h"

namespace vela::saving {

/// Puts the cell with the signal's own chunks: records {ID, Type, data} whose data are
/// "ChunkNum", "NumPoints", "StartTime", "EndTime", "TimeChunk" and "DataChunk". Room behind
/// their samples is left out.
void putChunks(datafile::DataFileWriter::Variable& into, ObjectManager& manager, int signal);

/// Takes the cell and makes the signal's chunks of it.
///
/// \param lastChunk  no chunk may have a greater number
/// \throws "nexstore:nex:InvalidFile" for records that are no chunks in order
void takeChunks(datafile::DataFileReader::Variable& from, const datafile::DataFileReader& file,
                ObjectManager& manager, int signal, int lastChunk);

}  // namespace vela::saving
