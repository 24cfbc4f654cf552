// Answers to questions of HTTP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/line/Http.h"
#include "runtime/base/Exception.h"

namespace ctl {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string answerTo(const char* head) {
  return httpAnswer(head, [] { return rt::String("vmagent_up 1\n"); }).str();
}

TEST(Http, AnswersAScrape) {
  for (const char* const head :
       {"GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n", "GET /metrics?x=1 HTTP/1.0\n\n"})
    EXPECT_EQ(answerTo(head),
              "HTTP/1.1 200 OK\r\n"
              "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
              "Content-Length: 13\r\n"
              "Connection: close\r\n"
              "X-Content-Type-Options: nosniff\r\n"
              "\r\n"
              "vmagent_up 1\n");
}

TEST(Http, LeavesTheBodyOutWhereOnlyTheHeadIsAskedFor) {
  const std::string answer = answerTo("HEAD /metrics HTTP/1.1\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("Content-Length: 13\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
}

TEST(Http, RefusesAllElseAndAsksForNoMetricsThen) {
  const std::pair<const char*, const char*> cases[] = {
      {"GET / HTTP/1.1\r\n\r\n", "404 "},
      {"GET /metrics/x HTTP/1.1\r\n\r\n", "404 "},
      {"POST /metrics HTTP/1.1\r\n\r\n", "405 "},
      {"GET /metrics\r\n\r\n", "400 "},
      {"GET /metrics SMTP\r\n\r\n", "400 "},
      {"GET /metrics HTTP/1.1\r\nHost: a\r\n", "400 "},
      {"\r\n\r\n", "400 "},
      {"", "400 "}};
  for (const auto& [head, status] : cases) {
    bool wasAsked = false;
    const std::string answer = httpAnswer(head, [&] {
                                 wasAsked = true;
                                 return rt::String();
                               }).str();
    EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + status)) << head;
    EXPECT_FALSE(wasAsked) << head;
  }
  EXPECT_THAT(answerTo("POST /metrics HTTP/1.1\r\n\r\n"), HasSubstr("Allow: GET, HEAD\r\n"));
}

TEST(Http, SaysThatThereIsNothingToAnswerWith) {
  EXPECT_THAT(httpFailure("it is damaged").str(), StartsWith("HTTP/1.1 503 "));
  EXPECT_THAT(httpFailure("it is damaged").str(), EndsWith("\r\n\r\nit is damaged\n"));
}

}  // namespace
}  // namespace ctl
