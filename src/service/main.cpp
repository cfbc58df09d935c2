#include "service/RunService.h"

int main() {
  return Torv::OS::Diagnostics::runService();
}
