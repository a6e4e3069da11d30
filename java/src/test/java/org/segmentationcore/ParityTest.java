package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.awt.image.BufferedImage;
import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Function;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * A session through the Java API gives, step by step, the masks that {@code cutout --edits} gives for
 * the same session file: the binding marks and drives the library as the command line does.
 */
class ParityTest {
  /** One step: as the session file says it, and as a Java call. */
  private static final class Step {
    final String kind;
    final String json;
    final Function<CutoutSession, EditResult> call;

    Step(String kind, String json, Function<CutoutSession, EditResult> call) {
      this.kind = kind;
      this.json = json;
      this.call = call;
    }
  }

  private static final List<Step> STEPS = List.of(
      new Step("box", "\"box\": [72, 14, 482, 392]", s -> s.box(72, 14, 482, 392)),
      new Step("stroke", "\"mode\": \"remove\", \"radius\": 5, \"points\": [[408, 80], [398, 160], [368, 290]]",
          s -> s.stroke(Mode.REMOVE, 5, 408, 80, 398, 160, 368, 290)),
      new Step("undo", null, CutoutSession::undo),
      new Step("redo", null, CutoutSession::redo),
      new Step("cut", "\"mode\": \"remove\", \"radius\": 8, \"points\": [[412, 68], [410, 95], [404, 120]]",
          s -> s.cut(Mode.REMOVE, 8, 412, 68, 410, 95, 404, 120)),
      new Step("loop", "\"mode\": \"remove\", \"points\": [[100, 300], [220, 300], [220, 392], [100, 392]]",
          s -> s.loop(Mode.REMOVE, 100, 300, 220, 300, 220, 392, 100, 392)),
      new Step("reset", null, CutoutSession::reset),
      new Step("loop", "\"mode\": \"add\", \"points\": [[150, 40], [420, 40], [420, 330], [150, 330]]",
          s -> s.loop(Mode.ADD, 150, 40, 420, 40, 420, 330, 150, 330)),
      new Step("stroke", "\"mode\": \"add\", \"radius\": 12, \"points\": [[300, 360]]",
          s -> s.stroke(Mode.ADD, 12, 300, 360)));

  @Test
  void everyStepsMaskIsCutoutsByteForByte(@TempDir Path dir) throws Exception {
    Path photoFile = Path.of(System.getProperty("segmentationcore.samples"), "coffee.png");
    Path sessionFile = dir.resolve("session.json");
    Files.writeString(sessionFile, sessionText(), StandardCharsets.UTF_8);
    Process cutout = new ProcessBuilder(System.getProperty("segmentationcore.cutout"), photoFile.toString(),
        "--edits", sessionFile.toString(), "-o", dir.resolve("out").toString(), "--every-step")
        .redirectErrorStream(true).redirectOutput(dir.resolve("cutout.log").toFile()).start();
    assertEquals(0, cutout.waitFor(), Files.readString(dir.resolve("cutout.log")));

    BufferedImage photo = ImageIO.read(photoFile.toFile());
    int width = photo.getWidth(), height = photo.getHeight();
    int[] argb = photo.getRGB(0, 0, width, height, null, 0, width);
    int digits = String.valueOf(STEPS.size()).length(); // cutout's step folders: step-01-box
    try (CutoutSession session = CutoutSession.open(width, height, argb)) {
      for (int k = 1; k <= STEPS.size(); ++k) {
        Step step = STEPS.get(k - 1);
        byte[] ours = Masks.of(step.call.apply(session));
        File theirs = dir.resolve(String.format("out/step-%0" + digits + "d-%s/mask.png", k, step.kind)).toFile();
        assertArrayEquals(maskBytes(ImageIO.read(theirs)), ours, "step " + k + ": " + step.kind);
      }
    }
  }

  private static String sessionText() {
    List<String> lines = new ArrayList<>();
    for (Step step : STEPS) {
      lines.add("  {\"kind\": \"" + step.kind + "\"" + (step.json == null ? "" : ", " + step.json) + "}");
    }
    return "{\"steps\": [\n" + String.join(",\n", lines) + "\n]}\n";
  }

  /** An 8-bit grey mask.png as bytes, row by row. */
  private static byte[] maskBytes(BufferedImage image) throws IOException {
    byte[] bytes = new byte[image.getWidth() * image.getHeight()];
    image.getRaster().getDataElements(0, 0, image.getWidth(), image.getHeight(), bytes);
    return bytes;
  }
}
