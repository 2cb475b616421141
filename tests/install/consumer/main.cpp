// A user of the installed library: one umbrella include, one target.
#include <velmora/common.h>

#include <cstdio>

int main() {
    velmora::StringWriter out;
    out.writeString("consumer ");
    velmora::MulticastWriter both(&out);
    both.writeString("ok");
    std::printf("%s\n", out.getString());
    return out.getLength() == 11 ? 0 : 1;
}
