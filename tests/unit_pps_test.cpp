// The unit's PPS manager, byte by byte.
#include <errno.h>
#include <sys/socket.h>

#include "platform/io.h"
#include "support/fixture.h"
#include "support/raw_client.h"

namespace support {
namespace {

class PpsManagerTest : public UnitTest {
 protected:
  static RawClient Writer(const std::string& path) { return OpenPps(path, O_WRONLY | O_CREAT); }

  static void Write(const std::string& path, const std::string& text) {
    const RawClient writer = Writer(path);
    ASSERT_EQ(0, writer.answer());
    ASSERT_TRUE(writer.Send(text));
  }

  // Every message that is there by now: an open is answered behind everything that was written.
  static std::vector<std::string> Drain(const RawClient& client) {
    EXPECT_EQ(0, AccessPps(""));
    std::vector<std::string> messages;
    while (const std::optional<std::string> message = client.ReceiveNow()) {
      if (message->empty()) break;
      messages.push_back(*message);
    }
    return messages;
  }
};

using Texts = std::vector<std::string>;

TEST_F(PpsManagerTest, WritesReplaceAndDeleteAttributesOrChangeNothing) {
  Write("/a/key", "@whatever\nname::plain text: with colons\nn:n:1");
  EXPECT_EQ("@key\nn:n:1\nname::plain text: with colons\n", PpsText("/a/key"));
  Write("/a/key", "n:n:2\nflag:b:true\n-name\n-missing\n");
  EXPECT_EQ("@key\nflag:b:true\nn:n:2\n", PpsText("/a/key"));
  Write("/a/key", "empty::\nodd:what.ever:\xff\x01");
  const std::string text = "@key\nempty::\nflag:b:true\nn:n:2\nodd:what.ever:\xff\x01\n";
  EXPECT_EQ(text, PpsText("/a/key"));

  // Each of these has one wrong line, first, in the middle or last, and good ones around it.
  const std::string refused[] = {"n:n:9\nno colon\nx::1",
                                 "n:n:9\nonly:one",
                                 ":n:9\nn:n:9",
                                 "n:n:9\n\nx::1",
                                 "\n",
                                 "n:n:9\n-",
                                 "-n:n:1",
                                 "n:n:9\n@late\n",
                                 "+@n:n:1",
                                 std::string("n:n:9\nx::\0", 10)};
  for (const std::string& write : refused) {
    Write("/a/key", write);
    EXPECT_EQ(text, PpsText("/a/key")) << write;
  }
  Write("/a/key", "");  // an empty message is no end of file and no change
  Write("/a/key", "@key\n");
  EXPECT_EQ(text, PpsText("/a/key"));
}

TEST_F(PpsManagerTest, OptionsInBracketsStayWhereTheyWereGiven) {
  const RawClient follower = OpenPps("/o?delta", O_RDONLY | O_CREAT);
  EXPECT_EQ("@o\n", follower.Receive().value_or(""));
  Write("/o", "[n]@o\n[n]a:n:1\nb::2\n");
  EXPECT_EQ("[n]@o\n[n]a:n:1\nb::2\n", PpsText("/o"));
  Write("/o", "a:n:3\n[x]b::[4]");
  EXPECT_EQ("[n]@o\n[n]a:n:3\n[x]b::[4]\n", PpsText("/o"));
  for (const char* wrong : {"[na:n:1", "[n]", "[n]:n:1", "[n]a:n", "a:n:9\n[n]@o", "[:]a:n:1",
                            "[n][n]a:n:9", "|@o:n:1", "-[n]a"}) {
    Write("/o", wrong);
  }
  Write("/o", "[]@o\n[n]-a\n[]b::5");
  EXPECT_EQ("@o\nb::5\n", PpsText("/o"));
  EXPECT_EQ((Texts{"@o\n[n]a:n:1\nb::2\n", "@o\na:n:3\n[x]b::[4]\n", "@o\n[n]-a\nb::5\n"}),
            Drain(follower));
}

TEST_F(PpsManagerTest, OpenFlagsDecideWhatAnOpenDoes) {
  EXPECT_EQ(ENOENT, OpenPps("/a/b/key", O_RDWR).answer());
  EXPECT_EQ(ENOENT, AccessPps("/a"));
  EXPECT_EQ(0, OpenPps("/a/b/key", O_RDWR | O_CREAT).answer());
  EXPECT_EQ(0, AccessPps("/a"));
  EXPECT_EQ(0, AccessPps("/a/b/"));
  EXPECT_EQ(0, AccessPps("//a/./x/../b/key"));
  EXPECT_EQ(ENOENT, AccessPps("/a/b/ke"));
  EXPECT_EQ(ENOTDIR, AccessPps("/a/b/key/"));
  EXPECT_EQ(ENOTDIR, AccessPps("/a/b/key/deeper"));
  EXPECT_EQ(ENOTDIR, OpenPps("/a/b/key/deeper/still", O_WRONLY | O_CREAT).answer());
  EXPECT_EQ(EISDIR, OpenPps("/a/b", O_WRONLY | O_CREAT).answer());
  EXPECT_EQ(EISDIR, OpenPps("/a/b", O_RDONLY).answer());
  EXPECT_EQ(EISDIR, OpenPps("/a/new/", O_WRONLY | O_CREAT).answer());
  EXPECT_EQ(EISDIR, OpenPps("", O_RDONLY).answer());
  EXPECT_EQ(ENOTDIR, OpenPps("/a/b/key", O_RDONLY | O_DIRECTORY).answer());
  EXPECT_EQ(EEXIST, OpenPps("/a/b/key", O_WRONLY | O_CREAT | O_EXCL).answer());
  EXPECT_EQ(ENAMETOOLONG, OpenPps("/" + std::string(256, 'n'), O_WRONLY | O_CREAT).answer());
  EXPECT_EQ(0, OpenPps("/" + std::string(255, 'n'), O_WRONLY | O_CREAT).answer());
  EXPECT_EQ(EINVAL, OpenPps("/a/new\nline", O_WRONLY | O_CREAT).answer());

  // A file that was opened for reading only writes nothing, one for writing only reads nothing.
  Write("/a/b/key", "n:n:1");
  const RawClient reader = OpenPps("/a/b/key", O_RDONLY);
  ASSERT_TRUE(reader.Send("n:n:2"));
  const RawClient writer = OpenPps("/a/b/key?wait", O_WRONLY);
  EXPECT_EQ(Texts{}, Drain(writer));
  EXPECT_EQ("@key\nn:n:1\n", PpsText("/a/b/key"));

  // One text, end of file, and writing still goes.
  const RawClient both = OpenPps("/a/b/key", O_RDWR);
  EXPECT_EQ("@key\nn:n:1\n", both.Receive().value_or(""));
  EXPECT_TRUE(both.AtEnd());
  ASSERT_TRUE(both.Send("n:n:3"));
  EXPECT_EQ("@key\nn:n:3\n", PpsText("/a/b/key"));

  EXPECT_EQ(0, OpenPps("/a/b/key", O_RDWR | O_CREAT | O_TRUNC).answer());
  EXPECT_EQ("@key\n", PpsText("/a/b/key"));
}

TEST_F(PpsManagerTest, DirectoriesAreListedAndObjectsRemoved) {
  for (const char* path : {"/d/b", "/d/a", "/d/sub/x", "/d/sub/y/z", "/d.c", "/d-e"})
    Write(path, "v::1");
  const RawClient list = OpenPps("/d", O_RDONLY | O_DIRECTORY);
  EXPECT_EQ("a\nb\nsub/\n", list.Receive().value_or(""));
  EXPECT_TRUE(list.AtEnd());
  EXPECT_EQ("d-e\nd.c\nd/\n", OpenPps("", O_RDONLY | O_DIRECTORY).Receive().value_or(""));

  const RawClient follower = OpenPps("/d/sub/x?delta", O_RDWR);
  EXPECT_EQ("@x\nv::1\n", follower.Receive().value_or(""));
  EXPECT_EQ(ENOTEMPTY, UnlinkPps("/d/sub"));
  EXPECT_EQ(ENOENT, UnlinkPps("/d/none"));
  EXPECT_EQ(ENOTDIR, UnlinkPps("/d/a/b"));
  EXPECT_EQ(EBUSY, UnlinkPps(""));
  EXPECT_EQ(0, UnlinkPps("/d/sub/x"));
  EXPECT_EQ("-@x\n", follower.Receive().value_or(""));
  EXPECT_TRUE(follower.AtEnd());

  // What a file of the removed object writes reaches no one else, also when the name is taken anew.
  Write("/d/sub/x", "v::2");
  ASSERT_TRUE(follower.Send("v::3"));
  EXPECT_EQ("@x\nv::2\n", PpsText("/d/sub/x"));

  EXPECT_EQ(0, UnlinkPps("/d/sub/x"));
  EXPECT_EQ(0, UnlinkPps("/d/sub/y/z"));
  EXPECT_EQ(0, AccessPps("/d/sub/y"));
  EXPECT_TRUE(OpenPps("/d/sub/y", O_RDONLY | O_DIRECTORY).AtEnd());
  EXPECT_EQ(0, UnlinkPps("/d/sub/y"));
  EXPECT_EQ(0, UnlinkPps("/d/sub"));
  EXPECT_EQ(ENOENT, AccessPps("/d/sub"));
}

TEST_F(PpsManagerTest, FollowersGetTheTextOrTheChangeButNotTheirOwn) {
  Write("/key", "a::1\nb::2");
  const RawClient wait = OpenPps("/key?wait", O_RDWR);
  const RawClient delta = OpenPps("/key?unknown,delta,backlog=x", O_RDWR);
  const RawClient both = OpenPps("/key?wait,delta,backlog=30", O_RDONLY);
  const RawClient plain = OpenPps("/key?flag,", O_RDONLY);
  for (const RawClient* client : {&wait, &delta, &both, &plain}) {
    EXPECT_EQ("@key\na::1\nb::2\n", client->Receive().value_or("")) << client->fd();
  }
  EXPECT_TRUE(plain.AtEnd());

  const RawClient writer = Writer("/key");
  ASSERT_TRUE(writer.Send("c:n:3\n-a\n-none"));
  EXPECT_EQ(Texts{"@key\nb::2\nc:n:3\n"}, Drain(wait));
  EXPECT_EQ(Texts{"@key\nc:n:3\n-a\n"}, Drain(delta));
  EXPECT_EQ(Texts{"@key\nc:n:3\n-a\n"}, Drain(both));

  // The same value again is a change; a refused write is none, and neither is one's own.
  ASSERT_TRUE(writer.Send("c:n:3"));
  for (const char* no_change : {"wrong", "-none", "@key"}) ASSERT_TRUE(writer.Send(no_change));
  EXPECT_EQ(Texts{"@key\nb::2\nc:n:3\n"}, Drain(wait));
  ASSERT_TRUE(wait.Send("d::4"));
  EXPECT_EQ(Texts{}, Drain(wait));
  EXPECT_EQ((Texts{"@key\nc:n:3\n", "@key\nd::4\n"}), Drain(delta));

  EXPECT_EQ(0, OpenPps("/key", O_WRONLY | O_TRUNC).answer());
  EXPECT_EQ(Texts{"@key\n"}, Drain(wait));
  EXPECT_EQ(Texts{"@key\n-b\n-c\n-d\n"}, Drain(delta));
  EXPECT_EQ(0, OpenPps("/key", O_WRONLY | O_TRUNC).answer());  // nothing left to remove
  EXPECT_EQ(Texts{}, Drain(wait));
}

TEST_F(PpsManagerTest, AFollowerThatDoesNotReadGetsTheWholeTextInPlaceOfWhatItMissed) {
  const std::string padding(1000, 'x');
  Write("/key", "n:n:-1\npad::" + padding + "\ngone::1");
  const RawClient slow[] = {OpenPps("/key?wait,backlog=8", O_RDONLY),
                            OpenPps("/key?delta,backlog=8", O_RDONLY)};
  const RawClient fast = OpenPps("/key?delta", O_RDONLY);
  const RawClient writer = Writer("/key");
  for (int i = 0; i < 500; ++i) {
    const std::string change = "n:n:" + std::to_string(i) + "\npad::" + padding;
    ASSERT_TRUE(writer.Send(i == 250 ? change + "\n-gone" : change));
    ASSERT_PRED2(Contains, Drain(fast).back(), "n:n:" + std::to_string(i) + "\n") << i;
  }

  // What lies in the socket stays, half of the backlog; one message stands for the rest.
  const std::string newest = "|@key\nn:n:499\npad::" + padding + "\n";
  for (const RawClient& client : slow) {
    std::size_t bytes = 0;
    std::string text;
    while (text.substr(0, 1) != "|") {
      const std::optional<std::string> next = client.Receive();
      ASSERT_TRUE(next) << text;
      text = *next;
      bytes += text.size();
    }
    EXPECT_EQ("|@key\n@key\nn:n:499\npad::" + padding + "\n", text);
    EXPECT_GE(bytes, 4u * 1024);
    EXPECT_LE(bytes, 8u * 1024);
    ASSERT_TRUE(writer.Send("n:n:499"));  // it gets every change again
    EXPECT_PRED2(Contains, client.Receive().value_or(""), "@key\nn:n:499\n");
  }

  // A removed object has no text.
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(writer.Send("pad::" + padding));
  ASSERT_EQ(0, UnlinkPps("/key"));
  std::string last;
  while (!last.empty() || !slow[1].AtEnd(milliseconds(0))) {
    last = slow[1].Receive().value_or("");
    if (last[0] == '-') break;
    EXPECT_EQ('@', last[0]);
  }
  EXPECT_EQ("-@key\n", last);
  EXPECT_TRUE(slow[1].AtEnd());
}

TEST_F(PpsManagerTest, ServerAndClientsThatDoNotReadGetTheNewestMessage) {
  const RawClient server = OpenPps("/control?server,backlog=4", O_RDWR | O_CREAT);
  const RawClient client = OpenPps("/control?backlog=4", O_RDWR);
  const std::string id = server.Receive().value_or("+").substr(1);
  const auto pair_up = [&](const RawClient& writer, const RawClient& reader) {
    for (int i = 0; i < 100; ++i) {
      ASSERT_TRUE(writer.Send("@control\npad::" + std::string(500, 'x')));
    }
    ASSERT_TRUE(writer.Send("@control\nn:n:1"));
    ASSERT_EQ(0, AccessPps(""));
    std::string text = "@";
    for (int i = 0; i < 8 && text[0] == '@'; ++i) text = reader.Receive().value_or("nothing");
    EXPECT_EQ("|@control\n" + (&reader == &server ? id : "@control\n") + "n:n:1\n", text);
    ASSERT_TRUE(writer.Send("@control\nn:n:2"));
    EXPECT_PRED2(Contains, reader.Receive().value_or(""), "n:n:2\n");
  };
  pair_up(client, server);
  pair_up(server, client);
}

TEST_F(PpsManagerTest, ServerObjectsPassEachMessageOn) {
  const RawClient early = OpenPps("/svc/control?wait,backlog=30", O_RDWR | O_CREAT);
  EXPECT_EQ("@control\n", early.Receive().value_or(""));
  const RawClient server = OpenPps("/svc/control?server", O_RDWR | O_CREAT);
  ASSERT_EQ(0, server.answer());
  const std::string arrival = server.Receive().value_or("");
  ASSERT_EQ("+@control.", arrival.substr(0, 10));
  const std::string first = arrival.substr(1);  // "@control.ID\n"
  EXPECT_EQ(EBUSY, OpenPps("/svc/control?server", O_RDWR).answer());

  RawClient late = OpenPps("/svc/control", O_RDWR);
  const std::string second = server.Receive().value_or("+").substr(1);
  EXPECT_EQ("@control.", second.substr(0, 9));
  EXPECT_NE(first, second);
  EXPECT_EQ(std::nullopt, late.Receive(milliseconds(50)));  // no text at open, no end either

  // Client to server: each as it was written, the object line exchanged, malformed ones dropped.
  ASSERT_TRUE(early.Send("@control\nmsg::location\nid::10"));
  ASSERT_TRUE(early.Send("broken"));
  ASSERT_TRUE(early.Send("id::11\n-x\n"));
  ASSERT_TRUE(late.Send("msg::location"));
  EXPECT_EQ((Texts{first + "msg::location\nid::10\n", first + "id::11\n-x\n",
                   second + "msg::location\n"}),
            Drain(server));
  EXPECT_EQ(Texts{}, Drain(early));

  // Server to one, to all, to a client that is gone.
  ASSERT_TRUE(server.Send(first + "dat:json:{\"a\":1}\n"));
  ASSERT_TRUE(server.Send(first + "dat:json:{\"a\":2}"));
  ASSERT_TRUE(server.Send("@control\nerr::suspended\n"));
  ASSERT_TRUE(server.Send("@control.999999\ndat::x"));
  ASSERT_TRUE(server.Send("dat::without a receiver"));
  ASSERT_TRUE(server.Send("@contro\ndat::x"));
  EXPECT_EQ((Texts{"@control\ndat:json:{\"a\":1}\n", "@control\ndat:json:{\"a\":2}\n",
                   "@control\nerr::suspended\n"}),
            Drain(early));
  EXPECT_EQ(Texts{"@control\nerr::suspended\n"}, Drain(late));
  EXPECT_EQ(Texts{}, Drain(server));

  // O_TRUNC is nothing that a client can do to a server.
  EXPECT_EQ(0, OpenPps("/svc/control", O_WRONLY | O_TRUNC).answer());
  Drain(server);  // that one came and went
  late.Close();
  EXPECT_EQ(Texts{"-" + second}, Drain(server));
}

TEST_F(PpsManagerTest, AnObjectIsPlainAgainWhenItsServerGoes) {
  Write("/control", "kept::1");
  RawClient server = OpenPps("/control?server", O_RDWR);
  const RawClient client = OpenPps("/control?wait", O_RDWR);
  ASSERT_TRUE(client.Send("msg::to the server"));
  server.Close();
  Write("/control", "n:n:1");
  EXPECT_EQ(Texts{"@control\nkept::1\nn:n:1\n"}, Drain(client));
  EXPECT_EQ(0, OpenPps("/control?server", O_RDWR).answer());
}

TEST_F(PpsManagerTest, ObjectsOfMegabytesTravelWhole) {
  static const std::size_t kLine = 60;
  static const std::size_t kLines = 20000;
  std::string text;
  for (std::size_t i = 0; i < kLines; ++i) {
    std::string line = std::to_string(100000 + i) + "::";
    line.resize(kLine - 1, 'v');
    text += line + "\n";
  }
  const RawClient writer = Writer("/big");
  for (std::size_t i = 0; i < kLines; i += 1000) {
    ASSERT_TRUE(writer.Send(text.substr(i * kLine, 1000 * kLine)));
    ASSERT_EQ(0, AccessPps(""));
  }

  // A host that refuses such messages gets whole lines; one that sends them, the whole text.
  const std::string whole = "@big\n" + text;
  const std::string received = PpsText("/big");
  EXPECT_EQ(0, whole.compare(0, received.size(), received));
  EXPECT_EQ('\n', received.back());
  const int wanted = static_cast<int>(text.size());
  if (setsockopt(writer.fd(), SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof(wanted)) != 0) return;
  EXPECT_EQ(whole.size(), received.size());
  ASSERT_TRUE(writer.Send(text));  // and back, in one message
  EXPECT_TRUE(whole == PpsText("/big"));
}

}  // namespace
}  // namespace support
