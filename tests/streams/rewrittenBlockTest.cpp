// A peer that writes to the block while the link reads it. Each transaction is taken in as it was copied out, or
// refused.
#include <algorithm>
#include <vector>

#include "tests/streams/blockRewriter.h"
#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

class RewrittenBlock : public SharedLink {
 public:
  // A transaction that has its sum.
  [[nodiscard]] static RawTransaction Sealed(std::initializer_list<RawBlock> blocks, std::uint32_t trxSeqNo = 1) {
    RawTransaction transaction = blocks;
    transaction.Seal(static_cast<std::uint32_t>(transaction.bytes.size()), transaction.blocks, trxSeqNo);
    return transaction;
  }
  void Write(const RawTransaction& transaction) {
    std::ranges::copy(transaction.bytes, peer->toLink.View().begin());
    ++rewritten;
  }
  void Fill(std::byte with) {
    std::ranges::fill(peer->toLink.View(), with);
    ++rewritten;
  }
  // The link looks at the size of `first`, and finds `second` when it copies.
  void PutInTurn(const RawTransaction& first, const RawTransaction& second) {
    const BlockRewriter rewriter([&] { Write(second); }, [] {});
    peer->PutBytes(first.bytes);
    EXPECT_EQ(rewritten, 1);
  }

  int rewritten = 0;
};

TEST_F(RewrittenBlock, ThatGrowsAheadOfTheCopyIsRefused) {
  Connect();
  PutInTurn(Sealed({For(stream, "short")}), Sealed({For(stream, "a longer one")}));
  ExpectFault();
}

TEST_F(RewrittenBlock, ThatGrowsByAWholeBlockAheadOfTheCopyIsRefused) {
  Connect();
  const RawBlock block = For(stream, "the same");
  PutInTurn(Sealed({block}), Sealed({block, block}));
  ExpectFault();
}

TEST_F(RewrittenBlock, ThatShrinksAheadOfTheCopyIsWhatWasCopied) {
  Connect();
  PutInTurn(Sealed({For(stream, "a longer one"), For(stream, "and another")}), Sealed({For(stream, "short")}));
  EXPECT_THAT(heard.texts, ElementsAre("short"));
  EXPECT_EQ(link->state(), LinkState::Connected);
}

TEST_F(RewrittenBlock, WhoseSizeShrinksBelowThatOfAnyTransactionAheadOfTheCopyIsRefused) {
  Connect();
  RawTransaction headerAlone = Sealed({For(stream, "text")});
  headerAlone.Seal(28, 1, 1);
  PutInTurn(Sealed({For(stream, "text")}), headerAlone);
  ExpectFault();
}

TEST_F(RewrittenBlock, WhoseSizeGoesBeyondTheBlockAheadOfTheCopyIsRefused) {
  for (const std::uint32_t size : {4097u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(size);
    Connect();
    heard.texts.clear();
    rewritten = 0;
    const RawTransaction first = Sealed({For(stream, "text")});
    RawTransaction second = first;
    second.Seal(size, 1, 1);
    PutInTurn(first, second);
    ExpectFault();
  }
}

TEST_F(RewrittenBlock, WhoseNumberChangesAheadOfTheCopyIsJudgedByTheCopy) {
  Connect();
  PutInTurn(Sealed({For(stream, "one")}, 2), Sealed({For(stream, "one")}, 1));
  EXPECT_THAT(heard.texts, ElementsAre("one"));
}

TEST_F(RewrittenBlock, BehindTheCopyChangesNothing) {
  for (const std::byte with : {std::byte{0}, std::byte{0xFF}}) {
    Connect();
    heard.texts.clear();
    RawTransaction transaction = Sealed({For(stream, "one"), For(stream, "two"), For(stream, "three")});
    {
      const BlockRewriter rewriter([] {}, [&] { Fill(with); });
      peer->PutBytes(transaction.bytes);
    }
    EXPECT_GT(rewritten, 3) << "at least for each block";
    EXPECT_THAT(heard.texts, ElementsAre("one", "two", "three"));
    peer->Put(Of({For(stream, "four")}), 2);
    EXPECT_THAT(heard.texts, ElementsAre("one", "two", "three", "four"));
    link->shutdown();
    pool::RunAll();
  }
}

TEST_F(RewrittenBlock, BehindTheCopyOfAFaultyTransactionDoesNotMakeItGood) {
  Connect();
  const RawTransaction good = Sealed({For(stream, "good")});
  RawTransaction faulty = good;
  faulty.bytes.back() ^= std::byte{1};
  {
    const BlockRewriter rewriter([] {}, [&] { Write(good); });
    peer->PutBytes(faulty.bytes);
  }
  EXPECT_GT(rewritten, 0);
  ExpectFault();
}

}  // namespace
}  // namespace streams
