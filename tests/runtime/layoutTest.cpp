#include "tests/support/layout.h"

#include <gtest/gtest.h>

#include <string>

#include "runtime/functionTrace.h"
#include "runtime/impersonateSession.h"
#include "runtime/logMessageCache.h"
#include "runtime/logWriter.h"
#include "runtime/logger.h"
#include "runtime/loggerManager.h"
#include "runtime/pollThread.h"
#include "runtime/thread.h"
#include "runtime/wkPtr.h"
#include "runtime/xString.h"
#include "tests/runtime/recordingWriter.h"

namespace support {

using namespace runtime;

SETTLED_FIELDS(RCObject, &RCObject::refCount, &RCObject::counted, &RCObject::weakReference);
SETTLED_FIELDS(WkReference, &WkReference::target);
SETTLED_FIELDS(TxMutexData, &TxMutexData::handle, &TxMutexData::ownerThreadId, &TxMutexData::recursionCount);
SETTLED_FIELDS(TxEventData, &TxEventData::handle, &TxEventData::ownsHandle);
SETTLED_FIELDS(TxThreadData, &TxThreadData::name, &TxThreadData::callback, &TxThreadData::userData,
               &TxThreadData::intervalMs, &TxThreadData::nextWaitMs, &TxThreadData::messageWait,
               &TxThreadData::threadId, &TxThreadData::thread, &TxThreadData::owner, &TxThreadData::deleted,
               &TxThreadData::wakeEvent, &TxThreadData::stopEvent, &TxThreadData::exitedEvent, &TxThreadData::mutex,
               &TxThreadData::threadHandleEvent);
SETTLED_FIELDS(TxPollThread, &TxPollThread::name, &TxPollThread::thread, &TxPollThread::mutex,
               &TxPollThread::dirtyEvent, &TxPollThread::externalMutex, &TxPollThread::runningItem,
               &TxPollThread::autoStart, &TxPollThread::alertable, &TxPollThread::logLevel, &TxPollThread::sessionId,
               &TxPollThread::items, &TxPollThread::id);
SETTLED_FIELDS(TxPollItem, &TxPollItem::name, &TxPollItem::event, &TxPollItem::doneEvent, &TxPollItem::timer,
               &TxPollItem::timeoutMs, &TxPollItem::disableCount, &TxPollItem::ownerId, &TxPollItem::listPosition);
SETTLED_FIELDS(LoggerManager, &LoggerManager::defaultLogger, &LoggerManager::loggers, &LoggerManager::messageManager,
               &LoggerManager::pollThread, &LoggerManager::noPollItems);
SETTLED_FIELDS(Logger, &Logger::writers, &Logger::level, &Logger::localTime, &Logger::enabled, &Logger::messageManager);
SETTLED_FIELDS(LogWriter, &LogWriter::threshold, &LogWriter::flushIntervalMs, &LogWriter::asynchronous,
               &LogWriter::enabled, &LogWriter::flooded, &LogWriter::open, &LogWriter::logger, &LogWriter::batchTimer,
               &LogWriter::batchMode, &LogWriter::pollItem, &LogWriter::slots, &LogWriter::activeSlot);
SETTLED_FIELDS(LogMessage, &LogMessage::inlineText, &LogMessage::length, &LogMessage::level, &LogMessage::heapText,
               &LogMessage::heapCapacity, &LogMessage::block, &LogMessage::nextFree);
SETTLED_FIELDS(LogMessageBlock, &LogMessageBlock::messages, &LogMessageBlock::freeHead, &LogMessageBlock::freeTail,
               &LogMessageBlock::freeCount, &LogMessageBlock::idleTimer, &LogMessageBlock::cache,
               &LogMessageBlock::listPosition);
SETTLED_FIELDS(LogMessageCache, &LogMessageCache::mutex, &LogMessageCache::blocks, &LogMessageCache::releaseTimer,
               &LogMessageCache::pendingLength, &LogMessageCache::pendingText, &LogMessageCache::sizeReports);
SETTLED_FIELDS(TxImpersonateSession, &TxImpersonateSession::sessionId, &TxImpersonateSession::userToken,
               &TxImpersonateSession::impersonating, &TxImpersonateSession::userName);
SETTLED_FIELDS(StringUtils::XString, &StringUtils::XString::wide, &StringUtils::XString::ownsWide,
               &StringUtils::XString::narrow, &StringUtils::XString::ownsNarrow);
SETTLED_FIELDS(TxTimer, &TxTimer::start, &TxTimer::pausedAt);
SETTLED_FIELDS(FunctionTrace, &FunctionTrace::functionName, &FunctionTrace::text, &FunctionTrace::enterLevel,
               &FunctionTrace::exitLevel, &FunctionTrace::timer, &FunctionTrace::timed, &FunctionTrace::logger);

}  // namespace support

namespace runtime {
namespace {

using support::ExpectInOrder;
using support::FieldsOf;
using support::kBehindDestructor;
using support::PlaceOf;

class Item : public TxPollItem {
 public:
  Item() : TxPollItem("layout") {}
  bool Run(bool) override { return true; }
};

TEST(FieldOrder, OfCountedObjectsAndWhatRefersToThem) {
  const auto reference = RCPtr<WkReference>::Adopt(RCPtr(new RCObject)->GetWeakReference());
  ExpectInOrder(FieldsOf(static_cast<const RCObject&>(*reference)));
  EXPECT_GT(FieldsOf(*reference).front(), FieldsOf(static_cast<const RCObject&>(*reference)).back());
  // A pointer is a table of operations and the address, weak ones too.
  EXPECT_EQ(sizeof(RCPtr<RCObject>), 2 * sizeof(void*));
  EXPECT_EQ(sizeof(WkPtr<RCObject>), 2 * sizeof(void*));
}

TEST(FieldOrder, OfMutexesAndEvents) {
  ExpectInOrder(FieldsOf(*RCPtr(new TxMutexData)));
  ExpectInOrder(FieldsOf(*RCPtr(new TxEventData({}, false))));
}

TEST(FieldOrder, OfThreadsAndTheirItems) {
  ExpectInOrder(FieldsOf(*RCPtr(new TxThreadData("layout", nullptr))));
  ExpectInOrder(FieldsOf(*RCPtr(new TxPollThread("layout"))));
  ExpectInOrder(FieldsOf(*RCPtr(new Item)));
}

TEST(FieldOrder, OfTheLog) {
  const runtimeTests::OwnLogger own;
  ExpectInOrder(FieldsOf(LoggerManager::Instance()));
  ExpectInOrder(FieldsOf(*own.logger));
  ExpectInOrder(FieldsOf(*RCPtr<LogWriter>(new runtimeTests::RecordingWriter)));
}

TEST(FieldOrder, OfMessagesAndTheirCache) {
  const RCPtr cache(new LogMessageCache);
  ExpectInOrder(FieldsOf(*cache));
  {
    const RCPtr message(cache->NewMessage());
    ExpectInOrder(FieldsOf(*message));
  }
  {
    const RCPtr block(new LogMessageBlock(cache));
    ExpectInOrder(FieldsOf(*block));
  }
  cache->GiveUp();
}

TEST(FieldOrder, OfSessionsTextsAndTimers) {
  ExpectInOrder(FieldsOf(*RCPtr(new TxImpersonateSession)));
  ExpectInOrder(FieldsOf(StringUtils::XString()));
  ExpectInOrder(FieldsOf(TxElapsedTimer()));
  ExpectInOrder(FieldsOf(FunctionTrace(7, "layout", RCPtr<Logger>(), "")));
}

TEST(VirtualOrder, OfCountedObjects) {
  EXPECT_EQ(PlaceOf(&RCObject::OnLastRelease), kBehindDestructor);
  EXPECT_EQ(PlaceOf(&RCObject::CreateWeakReference), kBehindDestructor + 1);
}

TEST(VirtualOrder, OfPollItemsIsBehindThatOfCountedObjects) {
  EXPECT_EQ(PlaceOf(&TxPollItem::Run), kBehindDestructor + 2);
}

TEST(VirtualOrder, OfLogWritersIsBehindThatOfCountedObjects) {
  EXPECT_EQ(PlaceOf(&LogWriter::ShouldDrop), kBehindDestructor + 2);
  EXPECT_EQ(PlaceOf(&LogWriter::Emit), kBehindDestructor + 3);
  EXPECT_EQ(PlaceOf(&LogWriter::BeginBatch), kBehindDestructor + 4);
  EXPECT_EQ(PlaceOf(&LogWriter::EndBatch), kBehindDestructor + 5);
  EXPECT_EQ(PlaceOf(&LogWriter::FormatPrefix), kBehindDestructor + 6);
}

TEST(VirtualOrder, OfTimers) {
  EXPECT_EQ(PlaceOf(&TxTimer::Now), kBehindDestructor);
  EXPECT_EQ(PlaceOf(&TxTimer::Frequency), kBehindDestructor + 1);
}

}  // namespace
}  // namespace runtime
