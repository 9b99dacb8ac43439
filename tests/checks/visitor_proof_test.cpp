#include "checks/visitor_proof.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "checks/client_counter.h"
#include "checks/verification_page.h"
#include "config/website_config.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

CIpAddress Client(const char* text) { return CIpAddress::Parse(text).value(); }

// RFC 4493, section 4.
TEST(Cmac, PublishedValues) {
  const std::string key("\x2b\x7e\x15\x16\x28\xae\xd2\xa6\xab\xf7\x15\x88\x09\xcf\x4f\x3c", 16);
  const std::string message(
      "\x6b\xc1\xbe\xe2\x2e\x40\x9f\x96\xe9\x3d\x7e\x11\x73\x93\x17\x2a\xae\x2d\x8a\x57\x1e\x03\xac\x9c\x9e\xb7\x6f"
      "\xac\x45\xaf\x8e\x51\x30\xc8\x1c\x46\xa3\x5c\xe4\x11",
      40);
  const CCmac cmac(key);
  EXPECT_EQ(TagText(cmac.Of("")), "bb1d6929e95937287fa37d129b756746");
  EXPECT_EQ(TagText(cmac.Of(message.substr(0, 16))), "070a16b46b4d4144f79bdd9dd04a287c");
  EXPECT_EQ(TagText(cmac.Of(message)), "dfa66747de9ae63030ca32611497c827");
}

TEST(VisitorProof, WorksForItsClientKindAndTimeAlone) {
  const CVisitorProofs proofs("0123456789abcdef");
  const std::string proof = proofs.Make(ProofKind::kVerified, Client("192.0.2.1"), 1000);
  EXPECT_EQ(proofs.Read(ProofKind::kVerified, Client("192.0.2.1"), 999, proof), 1000);
  EXPECT_FALSE(proofs.Read(ProofKind::kVerified, Client("192.0.2.1"), 1000, proof));
  EXPECT_FALSE(proofs.Read(ProofKind::kVerified, Client("192.0.2.2"), 999, proof));
  EXPECT_FALSE(proofs.Read(ProofKind::kAuthorized, Client("192.0.2.1"), 999, proof));
  EXPECT_FALSE(CVisitorProofs("another key 16by").Read(ProofKind::kVerified, Client("192.0.2.1"), 999, proof));
  const std::string known = proofs.Make(ProofKind::kAuthorized, Client("192.0.2.1"), 1000, "open sesame");
  EXPECT_TRUE(proofs.Read(ProofKind::kAuthorized, Client("192.0.2.1"), 999, known, "open sesame"));
  EXPECT_FALSE(proofs.Read(ProofKind::kAuthorized, Client("192.0.2.1"), 999, known, "another"));
  // Any change of any byte, and any other length.
  for (std::size_t i = 0; i < proof.size(); ++i) {
    std::string changed = proof;
    changed[i] = changed[i] == '0' ? '1' : '0';
    EXPECT_FALSE(proofs.Read(ProofKind::kVerified, Client("192.0.2.1"), 1, changed)) << i;
    EXPECT_FALSE(proofs.Read(ProofKind::kVerified, Client("192.0.2.1"), 1, proof.substr(0, i))) << i;
  }
  // An IPv6 client is its /64.
  const std::string wide = proofs.Make(ProofKind::kVerified, Client("2001:db8::1"), 1000);
  EXPECT_TRUE(proofs.Read(ProofKind::kVerified, Client("2001:db8::ffff"), 1, wide));
  EXPECT_FALSE(proofs.Read(ProofKind::kVerified, Client("2001:db8:0:1::1"), 1, wide));
}

TEST(VisitorProof, PagesExpireAndHaveAnswersAllOver) {
  const CVisitorProofs proofs("0123456789abcdef");
  const CIpAddress client = Client("192.0.2.1");
  std::vector<int> answers(CVisitorProofs::kAnswers);
  for (std::uint64_t nonce = 0; nonce < 600; ++nonce) {
    const std::string token = proofs.MakePage(kVerifySelect, client, 5000, nonce);
    const auto page = proofs.ReadPage(kVerifySelect, client, 5000 + CVisitorProofs::kPageLifetime, token);
    ASSERT_TRUE(page);
    ASSERT_LT(page->answer, CVisitorProofs::kAnswers);
    ++answers[page->answer];
    EXPECT_FALSE(proofs.ReadPage(kVerifyClick, client, 5000, token));
    EXPECT_FALSE(proofs.ReadPage(kVerifySelect, client, 5001 + CVisitorProofs::kPageLifetime, token));
    EXPECT_FALSE(proofs.ReadPage(kVerifySelect, client, 4999, token));
  }
  for (const int count : answers) EXPECT_GT(count, 50);
}

TEST(VisitorProof, ProcessesShareTheKeyInTheFile) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("_key.db");
  CProofSource first(path);
  CProofSource second(path);
  const CIpAddress client = Client("192.0.2.1");
  const std::string proof = first.At(1)->Make(ProofKind::kVerified, client, 1000);
  EXPECT_TRUE(second.At(1)->Read(ProofKind::kVerified, client, 1, proof));
  EXPECT_TRUE(first.IsShared() && second.IsShared());

  // Without the folder each process has its own key, until the folder is there.
  CProofSource lonely(directory.Path("missing/_key.db"));
  const std::string own = lonely.At(1)->Make(ProofKind::kVerified, client, 1000);
  EXPECT_FALSE(lonely.IsShared());
  EXPECT_TRUE(lonely.At(2)->Read(ProofKind::kVerified, client, 2, own));
  ASSERT_TRUE(MakeDirectory(directory.Path("missing")));
  lonely.At(10);
  EXPECT_TRUE(lonely.IsShared());
}

TEST(ClientCounter, CountsInPeriodsAndForgetsWhoAskedLeast) {
  CClientCounter counter;
  const CIpAddress client = Client("192.0.2.1");
  EXPECT_EQ(counter.Bytes(), 0U);
  for (std::uint32_t i = 1; i <= 5; ++i) EXPECT_EQ(counter.Add(client, 119, 60).requests, i);
  EXPECT_EQ(counter.Add(client, 120, 60).requests, 1U);  // the next period
  EXPECT_EQ(counter.Add(client, 119, 60).requests, 1U);  // the clock was set back
  counter.Hold(client, 500);
  EXPECT_TRUE(counter.Look(client, 499, 60).held);
  EXPECT_FALSE(counter.Look(client, 500, 60).held);
  EXPECT_TRUE(counter.Forgive(client, 110));
  EXPECT_EQ(counter.Look(client, 119, 60).requests, 0U);
  counter.Add(client, 119, 60);
  EXPECT_FALSE(counter.Forgive(client, 110)) << "the same once more";
  EXPECT_EQ(counter.Add(client, 119, 60).requests, 2U);

  // A flood from millions of addresses: those that ask often stay known.
  std::vector<CIpAddress> heavy;
  for (std::uint32_t i = 0; i < 1000; ++i) heavy.push_back(CIpAddress::FromIpv4(0x0A000000 + i * 7919));
  for (int round = 0; round < 3; ++round) {
    for (const CIpAddress& c : heavy) counter.Add(c, 1000, 1000);
  }
  counter.Add(client, 1000, 1000);
  counter.Hold(client, 1500);
  for (std::uint32_t i = 0; i < 3'000'000; ++i) counter.Add(CIpAddress::FromIpv4(0x20000000 + i), 1000, 1000);
  EXPECT_TRUE(counter.Look(client, 1000, 1000).held);
  std::size_t kept = 0;
  for (const CIpAddress& c : heavy) kept += counter.Look(c, 1000, 1000).requests == 3 ? 1 : 0;
  EXPECT_EQ(kept, heavy.size());
  EXPECT_EQ(counter.Bytes(), CClientCounter::kTableBytes);
  EXPECT_LE(2 * CClientCounter::kTableBytes, 32U << 20);
}

TEST(VerificationPage, AnswersAreReadFromQueryAndCookie) {
  const auto answer = ReadVerificationAnswer(kVerifySelect, "a=1&qivcctag=T&qivanswer=3&qivto=%2Fx%3Fa%3D1", "");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->token + " " + answer->answer + " " + answer->target, "T 3 /x?a=1");
  EXPECT_FALSE(ReadVerificationAnswer(kVerifySelect, "a=1", "qivcctag=T"));
  EXPECT_EQ(ReadVerificationAnswer(kVerifyCookie, "", "a=b; qivcctag=T").value().token, "T");

  const PageToken token{100, 4};
  EXPECT_TRUE(IsRightAnswer(kVerifySelect, token, "4", 100));
  EXPECT_FALSE(IsRightAnswer(kVerifySelect, token, "3", 100));
  EXPECT_FALSE(IsRightAnswer(kVerifySlide, token, "95", 200));
  EXPECT_TRUE(IsRightAnswer(kVerifySlide, token, "100", 200));
  EXPECT_FALSE(IsRightAnswer(kVerifyJump, token, "", 101));
  EXPECT_TRUE(IsRightAnswer(kVerifyJump, token, "", 103));
}

}  // namespace
}  // namespace qiv
