#include "ctl/line/Http.h"

#include <algorithm>

#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr std::string_view textType = "text/plain; charset=utf-8";
constexpr std::string_view metricsType = "text/plain; version=0.0.4; charset=utf-8";

enum class Body : bool { shown, left };

rt::String answer(std::string_view status, std::string_view type, const rt::String& body,
                  Body left = Body::shown) {
  rt::String text = "HTTP/1.1 " + rt::String(status) + "\r\nContent-Type: " + rt::String(type) +
                    "\r\nContent-Length: " + rt::toText(body.size()) +
                    "\r\nConnection: close\r\nX-Content-Type-Options: nosniff\r\n";
  if (status.starts_with("405")) text += "Allow: GET, HEAD\r\n";
  text += "\r\n";
  return left == Body::left ? text : text + body;
}

bool isWhole(std::string_view head) {
  return head.find("\r\n\r\n") != std::string_view::npos ||
         head.find("\n\n") != std::string_view::npos;
}

std::string_view takeWord(std::string_view& line) {
  const size_t end = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return word;
}

}  // namespace

rt::String httpAnswer(std::string_view head, const std::function<rt::String()>& body) {
  if (!isWhole(head)) return answer("400 Bad Request", textType, "no whole request came\n");
  std::string_view line = head.substr(0, head.find_first_of("\r\n"));
  const std::string_view method = takeWord(line);
  std::string_view target = takeWord(line);
  if (!line.starts_with("HTTP/1.")) return answer("400 Bad Request", textType, "no HTTP/1\n");
  if (method != "GET" && method != "HEAD")
    return answer("405 Method Not Allowed", textType, "GET and HEAD only\n");
  target = target.substr(0, target.find('?'));
  if (target != "/metrics") return answer("404 Not Found", textType, "there is /metrics only\n");
  return answer("200 OK", metricsType, body(), method == "HEAD" ? Body::left : Body::shown);
}

rt::String httpFailure(const rt::String& sentence) {
  return answer("503 Service Unavailable", textType, sentence + "\n");
}

}  // namespace ctl
