// The agent console in a real browser: a reply typed in the page reaches the
// user's message list through the API.
//
//   node console.test.js <path of zuvero-devserver>
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import crypto from "node:crypto";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import https from "node:https";
import os from "node:os";
import path from "node:path";
import readline from "node:readline";
import { chromium } from "playwright-core";

const serverPath = process.argv[2];
const scratch = mkdtempSync(path.join(os.tmpdir(), "zuvero-console-test-"));
const secret = crypto.randomBytes(32);
const apiKey = crypto.createHash("sha256").update(secret).digest("hex");

function startServer() {
  const server = spawn(serverPath, ["--data", path.join(scratch, "data"), "--port", "0", "--api-secret", secret.toString("hex")],
    { stdio: ["ignore", "pipe", "inherit"] });
  return new Promise((resolve, reject) => {
    const found = {};
    server.once("exit", (code) => reject(new Error(`zuvero-devserver exited with ${code}`)));
    readline.createInterface({ input: server.stdout }).on("line", (line) => {
      const [, key, value] = /^zuvero-devserver: (certificate authority|listening on): (.*)$/.exec(line.replace("listening on ", "listening on: ")) || [];
      if (key) found[key] = value;
      if (found["listening on"] && found["certificate authority"]) resolve({ server, origin: found["listening on"], ca: readFileSync(found["certificate authority"]) });
    });
  });
}

function token(claims) {
  const encode = (object) => Buffer.from(JSON.stringify(object)).toString("base64url");
  const input = encode({ alg: "HS256", typ: "JWT" }) + "." + encode(claims);
  return input + "." + crypto.createHmac("sha256", secret).update(input).digest("base64url");
}

// One HTTPS request that trusts only the server's own authority.
function request(target, { method = "GET", headers = {}, body } = {}) {
  return new Promise((resolve, reject) => {
    const req = https.request(target, { method, headers, ca: context.ca }, (res) => {
      const chunks = [];
      res.on("data", (chunk) => chunks.push(chunk));
      res.on("end", () => resolve({ status: res.statusCode, body: Buffer.concat(chunks) }));
    });
    req.on("error", reject);
    req.end(body);
  });
}

async function api(pathAndQuery, options = {}) {
  const headers = { "X-ZVL-JWT": userToken, ...options.headers };
  const reply = await request(context.origin + "/api/1.0" + pathAndQuery, { ...options, headers });
  assert.equal(reply.status, 200, `${pathAndQuery}: ${reply.body}`);
  return JSON.parse(reply.body);
}

async function sendAsUser(text) {
  const boundary = "ConsoleTestBoundary";
  const json = JSON.stringify({ uuid: crypto.randomUUID(), sender: "user", text });
  const body = `--${boundary}\r\nContent-Disposition: form-data; name="message"\r\nContent-Type: application/json\r\n\r\n${json}\r\n--${boundary}--`;
  await api("/messages", { method: "POST", body, headers: { "Content-Type": `multipart/form-data; boundary=${boundary}` } });
}

async function eventually(what, check, timeoutMs = 20000) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const result = await check();
    if (result) return result;
    if (Date.now() > deadline) throw new Error("timed out waiting for " + what);
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
}

const context = await startServer();
const userToken = token({ apiKey, installationId: crypto.randomUUID().toUpperCase(), userName: "Browser Test User" });
let browser;
try {
  await api("/register", { method: "POST", body: JSON.stringify({ appId: "org.example.test" }), headers: { "Content-Type": "application/json" } });
  await sendAsUser("My printer is on fire");

  // Chromium trusts exactly this server's key, with certificate checks otherwise on.
  const serverCertificate = new crypto.X509Certificate(readFileSync(path.join(scratch, "data", "tls", "server.pem")));
  const pin = crypto.createHash("sha256").update(serverCertificate.publicKey.export({ type: "spki", format: "der" })).digest("base64");
  browser = await chromium.launchPersistentContext(path.join(scratch, "profile"), {
    executablePath: "/usr/bin/chromium",
    headless: true,
    args: ["--no-sandbox", "--headless", "--disable-gpu", "--disable-background-networking", "--disable-component-update",
      "--no-first-run", `--ignore-certificate-errors-spki-list=${pin}`],
  });
  const page = browser.pages()[0] || await browser.newPage();
  await page.goto(context.origin + "/console");
  await page.locator("#conversations li", { hasText: "Browser Test User" }).click();
  await page.locator("#messages .message.user", { hasText: "My printer is on fire" }).waitFor();

  await page.fill("#agent-name", "Dana");
  await page.fill("#reply-text", "Please step away from the printer.");
  await page.setInputFiles("#reply-file", { name: "safety.txt", mimeType: "text/plain", buffer: Buffer.from("Stop, drop and roll.") });
  await page.click("#reply-send");
  await page.locator("#messages .message.agent", { hasText: "Please step away from the printer." }).waitFor();

  const reply = await eventually("the reply in the user's list", async () =>
    (await api("/messages?limit=50&")).messages.find((message) => message.sender === "agent"));
  assert.equal(reply.text, "Please step away from the printer.");
  assert.equal(reply.userName, "Dana");
  assert.equal(reply.attachments.length, 1);
  assert.equal(reply.attachments[0].filename, "safety.txt");
  const file = await request(reply.attachments[0].dataURL + "?jwt=" + userToken);
  assert.equal(file.status, 200);
  assert.equal(file.body.toString(), "Stop, drop and roll.");
  // Shown to the agent, the user's message is marked read for the agents.
  const [conversation] = JSON.parse((await request(context.origin + "/console/api/conversations")).body).conversations;
  assert.equal(conversation.unread, 0);
  console.log("PASS: an agent reply typed in the console reached the user's message list");
} finally {
  await browser?.close();
  context.server.kill("SIGTERM");
  await new Promise((resolve) => context.server.once("exit", resolve));
  rmSync(scratch, { recursive: true, force: true });
}
