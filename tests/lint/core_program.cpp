// A program that uses the core layers, for a look at what they link.
#include "messages/msg_converter.h"
#include "morva/bag.h"

int main() {
  morva::MorvaBag bag;
  bag.close();
  return static_cast<int>(morva::MsgConverter::fromImuMsgArray("").size());
}
