// Objects of C libraries, held by smart pointers.
#pragma once

namespace rt {

// A deleter that calls the library's function:
// std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>.
template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

}  // namespace rt
