// The unit's PPS manager, byte by byte.
#include <errno.h>
#include <poll.h>
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

  // What a file of the removed object writes reaches nobody, also when the name is taken anew.
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

TEST_F(PpsManagerTest, SlowReadersLoseTheOldestAndSlowNobody) {
  const std::string padding(1000, 'x');
  Write("/key", "n:n:-1\npad::" + padding + "\ngone::1\nback::1");
  const RawClient slow = OpenPps("/key?wait,backlog=8", O_RDONLY);
  const RawClient slow_delta = OpenPps("/key?delta,backlog=8", O_RDONLY);
  const RawClient fast = OpenPps("/key?wait", O_RDONLY);
  const RawClient writer = Writer("/key");
  ASSERT_EQ(1u, Drain(fast).size());

  ASSERT_TRUE(writer.Send("-gone"));
  ASSERT_TRUE(writer.Send("-back"));
  Drain(fast);
  for (int i = 0; i < 500; ++i) {
    const std::string change = "n:n:" + std::to_string(i) + "\npad::" + padding;
    ASSERT_TRUE(writer.Send(i == 250 ? change + "\nback::2" : change));
    const Texts texts = Drain(fast);
    ASSERT_FALSE(texts.empty());
    ASSERT_PRED2(Contains, texts.back(), "n:n:" + std::to_string(i) + "\n") << i;
  }

  // No more than the backlog waited, and the newest is behind it, complete.
  const auto collect = [](const RawClient& client) {
    Texts texts;
    for (;;) {
      const std::optional<std::string> text = client.Receive(milliseconds(200));
      if (!text) return texts;
      texts.push_back(*text);
    }
  };
  const Texts texts = collect(slow);
  std::size_t bytes = 0;
  for (const std::string& text : texts) bytes += text.size();
  EXPECT_LE(bytes, 8u * 1024);
  EXPECT_GE(bytes, 4u * 1024);
  EXPECT_EQ("@key\nback::2\nn:n:499\npad::" + padding + "\n", texts.back());

  // A follower of changes that was left behind ends up with the whole object all the same.
  const Texts changes = collect(slow_delta);
  ASSERT_GT(changes.size(), 1u);
  EXPECT_LT(changes.size(), 20u);
  EXPECT_PRED2(Contains, changes.back(), "n:n:499\n");
  bool back = false;
  bool gone = true;
  for (const std::string& text : changes) {
    if (text.find("\nback::2\n") != std::string::npos) back = true;
    if (text.find("\n-gone\n") != std::string::npos) gone = false;
  }
  EXPECT_TRUE(back);
  EXPECT_FALSE(gone);

  // Once it has read, it gets every change again.
  ASSERT_TRUE(writer.Send("n:n:500"));
  EXPECT_EQ(Texts{"@key\nn:n:500\n"}, Drain(slow_delta));
}

TEST_F(PpsManagerTest, DeletionsSurviveABacklogThatIsDropped) {
  const std::string padding(600, 'x');
  Write("/key", "gone::1\npad::" + padding);
  const RawClient slow = OpenPps("/key?delta,backlog=1", O_RDONLY);
  const RawClient writer = Writer("/key");
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(writer.Send("pad::" + padding));
  ASSERT_TRUE(writer.Send("-gone"));  // waits in the queue, where the next ones displace it
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(writer.Send("pad::" + padding));
  ASSERT_EQ(0, AccessPps("/key"));  // all of it is taken in
  Texts texts;
  while (const std::optional<std::string> text = slow.Receive(milliseconds(200))) {
    texts.push_back(*text);
  }
  EXPECT_EQ("@key\npad::" + padding + "\n-gone\n", texts.back());
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

  // Server to one, to all, to nobody.
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

  // What this host permits a program to send, the unit can.
  const int wanted = static_cast<int>(text.size());
  int granted = 0;
  socklen_t length = sizeof(granted);
  setsockopt(writer.fd(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted));
  setsockopt(writer.fd(), SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof(wanted));
  getsockopt(writer.fd(), SOL_SOCKET, SO_SNDBUF, &granted, &length);
  const std::string whole = "@big\n" + text;
  const std::string received = PpsText("/big");
  if (static_cast<std::size_t>(granted) > whole.size()) {
    EXPECT_EQ(whole.size(), received.size());
    EXPECT_TRUE(whole == received);
    ASSERT_TRUE(writer.Send(text));  // and back, in one message
    EXPECT_EQ(whole.size(), PpsText("/big").size());
  } else {
    // This host refuses such messages: the text ends with a whole line.
    EXPECT_TRUE(whole.compare(0, received.size(), received) == 0);
    EXPECT_EQ('\n', received.back());
  }

  // Followers that do not read it bother nobody.
  const RawClient stuck = OpenPps("/big?wait,backlog=1", O_RDONLY);
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(writer.Send("n:n:" + std::to_string(i)));
  EXPECT_EQ(0, AccessPps("/big"));
}

TEST_F(PpsManagerTest, PlatformCallsSeeTheSameManager) {
  EXPECT_EQ(-1, platform::open("/pps/x/y", O_RDONLY));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, platform::access("/pps/x", F_OK));
  EXPECT_EQ(ENOENT, errno);
  const int fd = platform::open("/pps/x/y?wait", O_RDWR | O_CREAT, 0666);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(5, platform::write(fd, "n:n:1", 5));
  EXPECT_EQ(0, platform::access("/pps/x", F_OK));
  EXPECT_EQ("@y\nn:n:1\n", PpsText("/x/y"));
  Write("/x/y", "n:n:2");
  char buffer[64];
  ASSERT_EQ(3, read(fd, buffer, sizeof(buffer)));
  ASSERT_EQ(5, read(fd, buffer, 5));  // a smaller buffer drops the tail of its message only
  EXPECT_EQ("@y\nn:", std::string(buffer, 5));
  Write("/x/y", "n:n:3");
  ASSERT_EQ(9, read(fd, buffer, sizeof(buffer)));
  close(fd);
}

}  // namespace
}  // namespace support
